// Counts what the program takes from the heap.
#ifndef WRENLINK_BENCH_ALLOCATIONS_H
#define WRENLINK_BENCH_ALLOCATIONS_H

#include <cstdint>

namespace wrenlink::bench {

// The calls of operator new so far, of all threads.
std::uint64_t allocations();

}  // namespace wrenlink::bench

#endif
