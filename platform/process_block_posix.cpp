// How the modules find one another: each carries an ELF note that tells where its anchor is, a
// pointer to the process's directory of blocks. Walking the loaded modules leads to all anchors,
// and the loader's own lock, which dl_iterate_phdr holds around its callback, is the one lock that
// all modules of a process have from the start.
#include "platform/process_block_posix.h"

#include <elf.h>
#include <link.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/os.h"

namespace wrenlink::os {
namespace {

// The layouts of this file are shared by all modules of a process; whoever changes one gives the
// note another type.
constexpr ElfW(Word) kNoteType = 1;
constexpr char kNoteOwner[] = "wrenlink";

constexpr std::size_t kNameBytes = 32;

// The head of a block; its bytes follow.
struct alignas(std::max_align_t) Block {
    Block* next;
    std::size_t size;
    std::uint64_t users;
    char name[kNameBytes];
};

// Exists while it has a block.
struct Directory {
    Block* first;
};

// The loader's lock is no concern of the language's memory model, so the anchors carry the order:
// each use of the directory begins with reading all and ends with writing one.
using Anchor = std::atomic<Directory*>;
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
    ".4byte 9, 8, 1\n"
    ".asciz \"wrenlink\"\n"
    ".balign 4\n"
    "0: .8byte wrenlinkProcessBlocks - 0b\n"
    ".popsection\n");

namespace {

// A readable part of a loaded module.
struct Range {
    const char* begin;
    const char* end;

    std::size_t size() const noexcept { return static_cast<std::size_t>(end - begin); }
};

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

std::size_t padded(std::size_t size, std::size_t alignment) noexcept {
    return (size + alignment - 1) / alignment * alignment;
}

// The anchor that a note leads to; null when the note is another's.
Anchor* anchorOf(const ElfW(Nhdr) & note, const char* owner, const char* descriptor) noexcept {
    std::int64_t distance = 0;
    if (note.n_type != kNoteType || note.n_namesz != sizeof kNoteOwner ||
        note.n_descsz != sizeof distance ||
        std::memcmp(owner, kNoteOwner, sizeof kNoteOwner) != 0) {
        return nullptr;
    }
    std::memcpy(&distance, descriptor, sizeof distance);
    const auto address = reinterpret_cast<std::uintptr_t>(descriptor);
    return reinterpret_cast<Anchor*>(address + static_cast<std::uintptr_t>(distance));
}

Anchor* anchorAmong(Range notes, std::size_t alignment) noexcept {
    ElfW(Nhdr) note;
    while (notes.size() >= sizeof note) {
        std::memcpy(&note, notes.begin, sizeof note);
        const char* const owner = notes.begin + sizeof note;
        const std::size_t ownerBytes = padded(note.n_namesz, alignment);
        const std::size_t descriptorBytes = padded(note.n_descsz, alignment);
        if (ownerBytes + descriptorBytes > notes.size() - sizeof note) break;
        Anchor* const anchor = anchorOf(note, owner, owner + ownerBytes);
        if (anchor != nullptr) return anchor;
        notes.begin = owner + ownerBytes + descriptorBytes;
    }
    return nullptr;
}

Anchor* anchorIn(const dl_phdr_info& module) noexcept {
    for (const auto* segment = module.dlpi_phdr; segment != module.dlpi_phdr + module.dlpi_phnum;
         ++segment) {
        if (segment->p_type != PT_NOTE || !isLoaded(module, *segment)) continue;
        const auto* const begin =
            reinterpret_cast<const char*>(module.dlpi_addr + segment->p_vaddr);
        Anchor* const anchor =
            anchorAmong({begin, begin + segment->p_memsz}, segment->p_align == 8 ? 8 : 4);
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

Directory* findDirectory() noexcept {
    Directory* found = nullptr;
    forEachAnchor([&found](const Anchor& anchor) {
        Directory* const directory = anchor.load(std::memory_order_acquire);
        if (directory != nullptr) found = directory;
    });
    return found;
}

Block* findBlock(const Directory& directory, const char* name) noexcept {
    Block* block = directory.first;
    while (block != nullptr && std::strcmp(block->name, name) != 0) block = block->next;
    return block;
}

Block* makeBlock(const char* name, std::size_t size, BlockAction initialise) noexcept {
    auto* const block = static_cast<Block*>(std::calloc(1, sizeof(Block) + size));
    if (block == nullptr) return nullptr;
    block->size = size;
    std::memcpy(block->name, name, std::strlen(name) + 1);
    if (initialise != nullptr) initialise(block + 1);
    return block;
}

// Adds a block to the directory, which is made with its first.
Block* addBlock(Directory*& directory, const char* name, std::size_t size,
                BlockAction initialise) noexcept {
    Block* const block = makeBlock(name, size, initialise);
    if (block == nullptr) return nullptr;
    if (directory == nullptr) {
        directory = static_cast<Directory*>(std::calloc(1, sizeof(Directory)));
        if (directory == nullptr) {
            std::free(block);
            return nullptr;
        }
    }
    block->next = directory->first;
    directory->first = block;
    return block;
}

// Gives what is left of the directory: null when that was its last block.
Directory* removeBlock(Directory* directory, Block* block) noexcept {
    Block** link = &directory->first;
    while (*link != block) link = &(*link)->next;
    *link = block->next;
    std::free(block);
    if (directory->first != nullptr) return directory;
    std::free(directory);
    forEachAnchor([](Anchor& anchor) { anchor.store(nullptr, std::memory_order_release); });
    return nullptr;
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
        Directory* directory = findDirectory();
        block = directory == nullptr ? nullptr : findBlock(*directory, name);
        existed = block != nullptr && block->size == size;
        if (block != nullptr && !existed) {
            error = EINVAL;
            return;
        }
        if (block == nullptr) block = addBlock(directory, name, size, initialise);
        if (block == nullptr) {
            error = ENOMEM;
            return;
        }
        ++block->users;
        wrenlinkProcessBlocks.store(directory, std::memory_order_release);
    });
    if (error == 0) return block + 1;
    errno = error;
    return nullptr;
}

void closeBlock(void* bytes, BlockAction finish) noexcept {
    Block* const block = static_cast<Block*>(bytes) - 1;
    underLoaderLock([&] {
        Directory* directory = findDirectory();
        if (--block->users == 0) {
            if (finish != nullptr) finish(bytes);
            directory = removeBlock(directory, block);
        }
        if (directory != nullptr) {
            wrenlinkProcessBlocks.store(directory, std::memory_order_release);
        }
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
