// A driver that keeps a request although it was cancelled: the call ends without it, and what the
// driver writes long after harms nobody.
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "platform/os.h"
#include "tests/exports/loaded_library.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

class KeptRequest : public testing::Test {
   protected:
    void keepNext() {
        simulator_.control("keep 0 yes");
        simulator_.control("fault 0 delay 3600000");
    }
    void giveBack() { simulator_.control("keep 0 no"); }

    Simulator simulator_;
};

// Asks for the delay, which is 4.
void ask(os::Device& device, std::array<char, 4>& reply) {
    ASSERT_TRUE(device.open(os::presentAdapters(1).at(0).c_str()));
    ASSERT_TRUE(device.makeEvent());
    EXPECT_EQ(device.wait(0), os::WaitResult::failed) << "nothing was started";
    ASSERT_NE(device.start(0x220000, "\3\0\4\0\0\5\0", 7, reply.data(), reply.size()),
              os::RequestStart::failed);
}

TEST_F(KeptRequest, LeavesTheBufferOfItsCallerAlone) {
    std::array<char, 4> reply{};
    for (int round = 0; round < 3; ++round) {
        keepNext();
        os::Device device;
        ask(device, reply);
        EXPECT_EQ(device.wait(0), os::WaitResult::timedOut);
        device.close();
        giveBack();
    }
    EXPECT_EQ(reply, (std::array<char, 4>{}));
}

TEST_F(KeptRequest, HoldsUpNeitherOthersNorTheUnloading) {
    {
        const LoadedLibrary library;
        std::uint32_t id = 0;
        ASSERT_EQ(library.init(&id), 0);
        std::uint16_t word = 0;
        SpiAction actions[] = {{SPIFNS_SETVAR, 0, {.variable = {"SPIPORT", "0", nullptr}}},
                               {SPIFNS_READ, 0, {.memory = {0, 0, 1, 0, &word}}}};
        EXPECT_EQ(library.run(id, actions, 1), 0);
        keepNext();
        EXPECT_EQ(library.run(id, actions + 1, 1), 1);
        const char* text = nullptr;
        library.lastError(nullptr, &text);
        EXPECT_EQ(text, textOf(NativeError::stillPending) +
                            ": Driver IO timed out: Unable to send sequence");
        std::thread([&] { EXPECT_EQ(library.run(id, actions, 2), 0); }).join();
        library.close(id);
    }
    EXPECT_FALSE(isLoaded(WRENLINK_LIBRARY));
    giveBack();
    std::array<char, 4> reply{};
    os::Device device;
    ask(device, reply);
    EXPECT_EQ(device.wait(1000), os::WaitResult::acquired);
    EXPECT_TRUE(device.outcome());
    EXPECT_EQ(reply[3], 4);
}

}  // namespace
}  // namespace wrenlink::test
