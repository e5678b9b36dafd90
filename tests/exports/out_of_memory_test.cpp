// Calls that run out of memory, wherever it happens: a code, and nothing half done.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>

#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace {

// How many more allocations of this thread succeed; negative for all.
thread_local int allowance = -1;

void* allocate(std::size_t size) {
    if (allowance == 0) throw std::bad_alloc();
    if (allowance > 0) --allowance;
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

// Not inline, or the compiler sees a replaced delete call free and takes it for a mistake.
[[gnu::noinline]] void release(void* memory) { std::free(memory); }

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }

namespace wrenlink::test {
namespace {

// Lets the call fail at its first allocation, then at its second, and so on until it succeeds.
// Returns how often it failed.
int failAtEachAllocation(const std::function<int()>& call, const std::function<void()>& check) {
    for (int permitted = 0;; ++permitted) {
        allowance = permitted;
        const int status = call();
        allowance = -1;
        if (status == 0) return permitted;
        EXPECT_EQ(outcome(status), (Failure{257, 0, "Out of memory"}));
        check();
    }
}

TEST(OutOfMemory, FailsACallAndLeavesTheLibraryWorking) {
    Simulator simulator({100, 200}, "1.9");
    std::uint32_t id = 0;
    EXPECT_GT(failAtEachAllocation([&] { return spifns_stream_init(&id); },
                                   [&] {
                                       EXPECT_EQ(id, SPIFNS_NO_STREAM);
                                       EXPECT_EQ(spifns_count_streams(), 0U);
                                   }),
              0);
    const auto run = [&](SpiAction action) {
        return [&id, action]() mutable { return spifns_stream_sequence(id, &action, 1); };
    };
    const auto nothing = [] {};
    EXPECT_GT(failAtEachAllocation(run(setting("SPIPORT", "200")), nothing), 0);
    EXPECT_STREQ(spifns_stream_getvar(id, "SPIPORT"), "1");
    EXPECT_STREQ(spifns_stream_getvar(id, "QUILLVERSION"), "0109");
    simulator.control("poke 1 1199 0xabcd");
    Words words(1200);
    EXPECT_GT(failAtEachAllocation(run(readInto(0, words)), nothing), 0);
    EXPECT_EQ(words.back(), 0xABCD);
    // The bits are known to the adapter, whichever of its requests had carried them.
    simulator.takeFrames(1);
    EXPECT_EQ(run(readInto(0, words))(), 0);
    EXPECT_EQ(simulator.takeFrames(1).front(), std::string(Batch().read(0, 505)));
    EXPECT_GT(failAtEachAllocation(
                  [] {
                      spifns_clear_last_error();
                      bool called = false;
                      spifns_enumerate_ports([](std::uint32_t, const char*,
                                                void* flag) { *static_cast<bool*>(flag) = true; },
                                             &called);
                      return called ? 0 : 1;
                  },
                  nothing),
              0);
    spifns_stream_close(id);
}

}  // namespace
}  // namespace wrenlink::test
