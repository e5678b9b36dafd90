// An adapter inside the process, in place of the operating system's devices: it carries out every
// request at once and counts what it is sent, so that what the library does besides can be
// measured. Its firmware is 1.9; reads give zeros. It ends the program on a request that is not
// well formed.
#ifndef WRENLINK_BENCH_INSTANT_DEVICE_H
#define WRENLINK_BENCH_INSTANT_DEVICE_H

#include <cstdint>

namespace wrenlink::bench {

struct Traffic {
    std::uint64_t requests = 0;
    std::uint64_t bytes = 0;  // of their frames
};

// What this thread has sent so far.
Traffic& traffic();

}  // namespace wrenlink::bench

#endif
