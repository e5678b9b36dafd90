// What the fuzz targets share: an adapter inside the process, in place of the operating system's
// devices, and a place of its own for kernel objects. One thread.
#ifndef WRENLINK_FUZZ_HARNESS_H
#define WRENLINK_FUZZ_HARNESS_H

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>

#include "sim/model/adapter.h"
#include "tests/exports/oracle.h"

namespace wrenlink::fuzz {

using test::Bytes;

// What a target does with one input. Each target defines it.
void run(FuzzedDataProvider& input);

// Ends the program, which makes the input a finding, unless `good`.
void require(bool good, const char* what);

// How an exchange goes on.
enum class Ending { completed, notStarted, failed, silent };

// The adapter that the library finds, with the id 100: the simulator's model, which every input
// meets at power-on, and a way to come between it and the library.
class Wire {
   public:
    Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;
    virtual ~Wire();

    quillsim::Adapter& adapter();
    // Whether every frame so far was well formed.
    bool allGood() const { return allGood_; }

    // What becomes of a request; its reply, of any size, may be changed. A silent one still writes
    // its reply, as the library gives it up.
    virtual Ending end(const Bytes& frame, Bytes& reply);

    // Carries a request out and returns the reply.
    Bytes serve(const Bytes& frame, std::size_t capacity);

   private:
    bool allGood_ = true;
};

}  // namespace wrenlink::fuzz

#endif
