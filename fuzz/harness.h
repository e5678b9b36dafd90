// What the fuzz targets share: an adapter inside the process, in place of the operating system's
// devices, and a place of its own for kernel objects. One thread.
#ifndef WRENLINK_FUZZ_HARNESS_H
#define WRENLINK_FUZZ_HARNESS_H

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>

#include "sim/model/adapter.h"
#include "tests/exports/host.h"

namespace wrenlink::fuzz {

using Bytes = std::vector<std::uint8_t>;

// What a target does with one input. Each target defines it.
void run(FuzzedDataProvider& input);

// Ends the program, which makes the input a finding, unless `good`.
void require(bool good, const char* what);

// The adapter that the library finds, with the id 100: the simulator's model, which every input
// meets at power-on, and a way to listen to the library.
class Wire {
   public:
    Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;
    virtual ~Wire();

    quillsim::Adapter& adapter();
    // Whether every frame so far was well formed.
    bool allGood() const { return allGood_; }

    virtual void hear(const Bytes&) {}
    // Carries a request out and returns the reply.
    Bytes serve(const Bytes& frame, std::size_t capacity);

   private:
    bool allGood_ = true;
};

}  // namespace wrenlink::fuzz

#endif
