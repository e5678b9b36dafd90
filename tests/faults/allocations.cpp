// Memory that can run out: operator new, and where CMakeLists.txt has the linker say so, malloc and
// calloc as everything that is linked into the test calls them.
#include <atomic>
#include <new>

#include "tests/faults/faults.h"

namespace wrenlink::test {

void* systemMalloc(std::size_t size) __asm__(SYMBOL_malloc);
void* systemCalloc(std::size_t count, std::size_t size) __asm__(SYMBOL_calloc);
void systemFree(void* memory) __asm__(SYMBOL_free);

namespace {

std::atomic<std::size_t> live{0};

// Counts a block that has been had.
void* counted(void* memory) {
    if (memory != nullptr) ++live;
    return memory;
}

bool isLacking() { return fails(FaultPlan::Among::allocations, Call::allocation, 0); }

void* allocate(std::size_t size) { return isLacking() ? nullptr : counted(systemMalloc(size)); }

// Not inline, or the compiler sees a replaced delete call free and takes it for a mistake.
[[gnu::noinline]] void release(void* memory) {
    if (memory != nullptr) --live;
    systemFree(memory);
}

}  // namespace

std::size_t liveAllocations() { return live; }

void* decoratedMalloc(std::size_t size) __asm__("__wrap_malloc");
void* decoratedMalloc(std::size_t size) { return allocate(size); }

void* decoratedCalloc(std::size_t count, std::size_t size) __asm__("__wrap_calloc");
void* decoratedCalloc(std::size_t count, std::size_t size) {
    return isLacking() ? nullptr : counted(systemCalloc(count, size));
}

void decoratedFree(void* memory) __asm__("__wrap_free");
void decoratedFree(void* memory) { release(memory); }

}  // namespace wrenlink::test

void* operator new(std::size_t size) {
    void* const memory = wrenlink::test::allocate(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void* operator new[](std::size_t size) { return operator new(size); }
// Nothing here asks for more than malloc's own alignment.
void* operator new(std::size_t size, std::align_val_t) { return operator new(size); }
void operator delete(void* memory) noexcept { wrenlink::test::release(memory); }
void operator delete[](void* memory) noexcept { wrenlink::test::release(memory); }
void operator delete(void* memory, std::size_t) noexcept { wrenlink::test::release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { wrenlink::test::release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { wrenlink::test::release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    wrenlink::test::release(memory);
}
