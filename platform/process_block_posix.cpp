// Blocks on the heap that all modules of the process find, since each carries a note about its own
// anchor:
//
//     one module              another module
//     ELF note -> anchor      ELF note -> anchor
//                    |                       |
//                    +-----------+-----------+
//                                v
//                        block "TLS Mutex" -> block "TLS Memory" -> null
//
// dl_iterate_phdr shows the modules that are loaded, and in them the notes. It calls back under the
// loader's own lock, the one lock that all modules have from the start: whatever is done with the
// blocks is done in such a callback. An anchor is null until its module opens a block.
#include "platform/process_block_posix.h"

#include <elf.h>
#include <link.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/os.h"

namespace wrenlink::os {
namespace {

constexpr std::size_t kNameBytes = 32;

// The head of a block; its bytes follow.
struct alignas(std::max_align_t) Block {
    Block* next;
    std::size_t size;
    std::uint64_t users;
    char name[kNameBytes];
};

// The loader's lock is no concern of the language's memory model, so the anchors carry the order:
// each use of the blocks begins with reading all anchors and ends with writing one.
using Anchor = std::atomic<Block*>;
static_assert(Anchor::is_always_lock_free && sizeof(Anchor) == sizeof(void*));

}  // namespace

// The anchor of this module, named for the assembler below.
extern "C" {
[[gnu::visibility("hidden"), gnu::used]] constinit Anchor wrenlinkProcessBlocks{nullptr};
}

// The note's descriptor is the distance from itself to the anchor: it needs no relocation, so it
// can be read in a module that the loader is still working on.
__asm__(
    ".pushsection .note.wrenlink,\"a\",%note\n"
    ".balign 4\n"
    ".4byte 9, 8, 2\n"
    ".asciz \"wrenlink\"\n"
    ".balign 4\n"
    "0: .8byte wrenlinkProcessBlocks - 0b\n"
    ".popsection\n");

namespace {

// What stands before the descriptor: the sizes of owner and descriptor, the type, the owner.
// Modules of all versions share the layouts of this file; whoever changes one gives the note
// another type.
struct NoteHead {
    std::uint32_t ownerBytes = 9, descriptorBytes = 8, type = 2;
    char owner[12] = "wrenlink";
};
constexpr NoteHead kNoteHead;

// The note segments of files need not be loaded; this tells whether one is.
bool isLoaded(const dl_phdr_info& module, const ElfW(Phdr) & segment) noexcept {
    for (const auto* load = module.dlpi_phdr; load != module.dlpi_phdr + module.dlpi_phnum;
         ++load) {
        if (load->p_type == PT_LOAD && (load->p_flags & PF_R) != 0 &&
            segment.p_vaddr >= load->p_vaddr &&
            segment.p_vaddr + segment.p_memsz <= load->p_vaddr + load->p_filesz) {
            return true;
        }
    }
    return false;
}

std::size_t padded(std::size_t size) noexcept { return (size + 3) / 4 * 4; }

// The anchor that one of these notes leads to; null when they are all others'.
Anchor* anchorAmong(std::string_view notes) noexcept {
    ElfW(Nhdr) note;
    std::int64_t distance = 0;
    while (notes.size() >= sizeof note) {
        std::memcpy(&note, notes.data(), sizeof note);
        const std::size_t size = sizeof note + padded(note.n_namesz) + padded(note.n_descsz);
        if (size > notes.size()) break;
        if (size == sizeof kNoteHead + sizeof distance &&
            std::memcmp(notes.data(), &kNoteHead, sizeof kNoteHead) == 0) {
            const char* const descriptor = notes.data() + sizeof kNoteHead;
            std::memcpy(&distance, descriptor, sizeof distance);
            return reinterpret_cast<Anchor*>(reinterpret_cast<std::intptr_t>(descriptor) +
                                             distance);
        }
        notes.remove_prefix(size);
    }
    return nullptr;
}

Anchor* anchorIn(const dl_phdr_info& module) noexcept {
    for (const auto* segment = module.dlpi_phdr; segment != module.dlpi_phdr + module.dlpi_phnum;
         ++segment) {
        // Notes of another alignment, which linkers keep apart, are padded otherwise.
        if (segment->p_type != PT_NOTE || segment->p_align == 8 || !isLoaded(module, *segment))
            continue;
        Anchor* const anchor = anchorAmong(
            {reinterpret_cast<const char*>(module.dlpi_addr + segment->p_vaddr), segment->p_memsz});
        if (anchor != nullptr) return anchor;
    }
    return nullptr;
}

template <class Visit>
void forEachAnchor(Visit visit) noexcept {
    ::dl_iterate_phdr(
        [](dl_phdr_info* module, std::size_t, void* context) {
            Anchor* const anchor = anchorIn(*module);
            if (anchor != nullptr) (*static_cast<Visit*>(context))(*anchor);
            return 0;
        },
        &visit);
}

// The lock is recursive: work may walk the modules in turn.
template <class Work>
void underLoaderLock(Work work) noexcept {
    ::dl_iterate_phdr(
        [](dl_phdr_info*, std::size_t, void* context) {
            (*static_cast<Work*>(context))();
            return 1;
        },
        &work);
}

Block* firstBlock() noexcept {
    Block* found = nullptr;
    forEachAnchor([&found](const Anchor& anchor) {
        Block* const first = anchor.load(std::memory_order_acquire);
        if (first != nullptr) found = first;
    });
    return found;
}

Block* makeBlock(const char* name, std::size_t size, BlockAction initialise) noexcept {
    auto* const block = static_cast<Block*>(std::calloc(1, sizeof(Block) + size));
    if (block == nullptr) return nullptr;
    block->size = size;
    std::memcpy(block->name, name, std::strlen(name) + 1);
    if (initialise != nullptr) initialise(block + 1);
    return block;
}

void removeBlock(Block*& first, Block* block) noexcept {
    Block** link = &first;
    while (*link != block) link = &(*link)->next;
    *link = block->next;
    std::free(block);
}

}  // namespace

void* openBlock(const char* name, std::size_t size, BlockAction initialise,
                bool& existed) noexcept {
    existed = false;
    if (std::strlen(name) >= kNameBytes) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    int error = 0;
    Block* block = nullptr;
    underLoaderLock([&] {
        Block* first = firstBlock();
        // A new block becomes the last one, so that the others' anchors stay as they are.
        Block** link = &first;
        while (*link != nullptr && std::strcmp((*link)->name, name) != 0) link = &(*link)->next;
        if (*link != nullptr && (*link)->size != size) {
            error = EINVAL;
            return;
        }
        existed = *link != nullptr;
        if (!existed) *link = makeBlock(name, size, initialise);
        block = *link;
        if (block == nullptr) {
            error = ENOMEM;
            return;
        }
        ++block->users;
        wrenlinkProcessBlocks.store(first, std::memory_order_release);
    });
    if (error == 0) return block + 1;
    errno = error;
    return nullptr;
}

void closeBlock(void* bytes, BlockAction finish) noexcept {
    Block* const block = static_cast<Block*>(bytes) - 1;
    underLoaderLock([&] {
        Block* first = firstBlock();
        if (--block->users == 0) {
            if (finish != nullptr) finish(bytes);
            removeBlock(first, block);
        }
        forEachAnchor([first](Anchor& anchor) {
            if (anchor.load(std::memory_order_relaxed) != nullptr)
                anchor.store(first, std::memory_order_release);
        });
    });
}

ProcessBlock openProcessBlock(const char* name, std::size_t size) noexcept {
    ProcessBlock block;
    block.view = openBlock(name, size, nullptr, block.existed);
    return block;
}

void closeProcessBlock(ProcessBlock& block) noexcept {
    if (block.view != nullptr) closeBlock(block.view, nullptr);
    block = ProcessBlock();
}

}  // namespace wrenlink::os
