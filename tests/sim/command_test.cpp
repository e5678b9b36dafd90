// The command language, and the log's limits.
#include "sim/model/command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/sim/bench.h"

namespace quillsim::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kGetDelay = "03 00 04 00 00 05 00";

TEST(CommandTest, RefusesWhatItDoesNotUnderstandAndChangesNothing) {
    const std::vector<const char*> lines = {
        "",
        "nothing",
        "state",
        "state 1",
        "state x",
        "state 0 0",
        "log 0 all",
        "fault 0",
        "fault 0 sillence",
        "fault 0 delay",
        "fault 0 delay x",
        "fault 0 delay 4294967296",
        "fault 0 runt 4",
        "fault 0 runt 0",
        "fault 0 silence 0",
        "fault 0 silence code=0",
        "fault 0 silence times=1",
        "xap 0 0x10000",
        "xap 0 sleeping",
        "faulty 0 2 1",
        "faulty 0 1",
        "peek 0 0x10000 1",
        "peek 0 0 65537",
        "poke 0 0",
        "poke 0 0 1 0x",
        "set 0 firmware 1",
        "set 0 firmware 1.256",
        "set 0 id -1",
        "set 0 colour 1",
        "set 0 delay 65536",
    };
    Bench bench;
    const std::string before = bench.control("state 0");
    for (const char* line : lines) {
        EXPECT_THAT(bench.control(line), StartsWith("error: ")) << line;
    }
    EXPECT_EQ(bench.control("state 0"), before);
    EXPECT_EQ(bench.control("peek 0 0 1"), "0x0000\nok\n");
}

TEST(CommandTest, SetsWhatTheAdapterReports) {
    Bench bench;
    for (const char* line : {"set 0 id 4294967295", "set 0 firmware 255.7", "set 0 delay 0xffff",
                             "set 0 answer-us 12", "set 0 readbits 3", "set 0 writebits 0x8000"}) {
        EXPECT_EQ(bench.control(line), "ok\n");
    }
    EXPECT_THAT(bench.control("list"),
                StartsWith("adapter=0 plugged=1 id=4294967295 firmware=255.7 delay=65535 mode=0 "
                           "device=0 readbits=0x0003 writebits=0x8000 "));
    EXPECT_EQ(bench.ask("03 00 06 00 00 07 00"), "0700ffffffff");
    EXPECT_EQ(bench.exchange(fromHex(kGetDelay)).delayMicroseconds, 12U);
}

TEST(CommandTest, CountsRequestsAndOpens) {
    Bench bench;
    bench.adapter->opened();
    bench.adapter->opened();
    bench.adapter->closed();
    bench.ask(kGetDelay);
    EXPECT_EQ(bench.control("count 0"), "requests=1 opens=2 open=1 peak=2\nok\n");
    EXPECT_EQ(bench.control("log 0 clear"), "ok\n");
    EXPECT_EQ(bench.control("count 0"), "requests=1 opens=1 open=1 peak=1\nok\n");
}

TEST(CommandTest, PlugsAndUnplugs) {
    Bench bench;
    EXPECT_EQ(bench.control("unplug 0"), "ok\n");
    EXPECT_THAT(bench.control("state 0"), HasSubstr(" plugged=0 "));
    EXPECT_EQ(bench.control("plug 0"), "ok\n");
    EXPECT_THAT(bench.control("state 0"), HasSubstr(" plugged=1 "));
}

TEST(LogTest, NumbersRequestsAndForgetsOnDemand) {
    Bench bench;
    for (int i = 0; i < 3; ++i) bench.ask(kGetDelay);
    EXPECT_THAT(bench.control("log 0 3"), StartsWith("seq=3 "));
    bench.control("log 0 clear");
    EXPECT_EQ(bench.control("log 0"), "ok\n");
    bench.ask(kGetDelay);
    EXPECT_THAT(bench.control("log 0"), StartsWith("seq=4 "));
}

struct Load {
    std::size_t words;  // of each read
    std::size_t requests;
    std::size_t held;
};

TEST(LogTest, HoldsTheLatestRequestsWithinItsLimits) {
    // Short ones fill the entries, long ones (11 and 1016 bytes) the bytes.
    for (const Load& load : {Load{1, 5000, kLogEntries}, Load{505, 3000, kLogBytes / 1027}}) {
        Bench bench;
        std::vector<std::uint8_t> frame = fromHex("07 00 00 00 00 01 00 00 00 00 00");
        frame[2] = static_cast<std::uint8_t>(6 + 2 * load.words);
        frame[3] = static_cast<std::uint8_t>((6 + 2 * load.words) >> 8);
        storeBig(frame, 9, static_cast<std::uint16_t>(load.words));
        for (std::size_t i = 0; i < load.requests; ++i) {
            storeBig(frame, 7, static_cast<std::uint16_t>(i));
            ASSERT_EQ(bench.exchange(frame).status, 0U);
        }
        std::string log = bench.control("log 0");
        const auto lines = static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n')) - 1;
        // A window of bytes may lose a little at its wrap.
        EXPECT_LE(lines, load.held);
        EXPECT_GE(lines, load.held - 2);
        EXPECT_THAT(log, StartsWith("seq=" + std::to_string(load.requests - lines + 1) + " "));
        const std::string last = bench.control("log 0 " + std::to_string(load.requests));
        std::string address;
        writerTo(address).hex(load.requests - 1, 4);
        EXPECT_THAT(last, HasSubstr("ops=read(" + address + ","));
        EXPECT_THAT(last, EndsWith("\nok\n"));
    }
}

}  // namespace
}  // namespace quillsim::test
