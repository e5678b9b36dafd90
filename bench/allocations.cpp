#include "bench/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constinit std::atomic<std::uint64_t> count{0};

void* counted(void* memory) {
    count.fetch_add(1, std::memory_order_relaxed);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

}  // namespace

void* operator new(std::size_t size) { return counted(std::malloc(size)); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto unit = static_cast<std::size_t>(alignment);
    return counted(std::aligned_alloc(unit, (size + unit - 1) / unit * unit));
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }

namespace wrenlink::bench {

std::uint64_t allocations() { return count.load(std::memory_order_relaxed); }

}  // namespace wrenlink::bench
