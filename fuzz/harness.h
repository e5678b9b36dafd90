// What the fuzz targets share. One thread.
#ifndef WRENLINK_FUZZ_HARNESS_H
#define WRENLINK_FUZZ_HARNESS_H

#include <fuzzer/FuzzedDataProvider.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "sim/model/adapter.h"

namespace wrenlink::fuzz {

using Bytes = std::vector<std::uint8_t>;

// What a target does with one input. Each target defines it.
void run(FuzzedDataProvider& input);

// Ends the program, which makes the input a finding, unless `good`.
inline void require(bool good, const char* what) {
    if (good) return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::abort();
}

// Makes another adapter, with the id 100, at power-on, in its place.
inline void renew(quillsim::Adapter& adapter) {
    std::destroy_at(&adapter);
    std::construct_at(&adapter, 100, EINVAL);
}

}  // namespace wrenlink::fuzz

extern "C" [[gnu::used]] inline int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                                           std::size_t size) {
    FuzzedDataProvider input(data, size);
    wrenlink::fuzz::run(input);
    return 0;
}

#endif
