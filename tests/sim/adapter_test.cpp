// Single commands: what an adapter answers, what it keeps and what it refuses.
#include "sim/model/adapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/sim/bench.h"

namespace quillsim::test {
namespace {

using testing::HasSubstr;

struct Exchange {
    const char* frame;
    const char* reply;
};

TEST(AdapterTest, AnswersEveryCommand) {
    const std::vector<Exchange> exchanges = {
        {"03 00 06 00 00 07 00", "070012345678"},    // adapter id
        {"03 00 04 00 00 08 00", "08000109"},        // firmware version
        {"03 00 04 00 00 05 00", "05000004"},        // delay at power-on
        {"05 00 00 00 00 03 00 01 2c", ""},          // set delay 300
        {"03 00 04 00 00 05 00", "0500012c"},        //
        {"03 00 04 00 00 04 00", "04000000"},        // XAP runs
        {"03 00 00 00 00 06 00", ""},                // DFU
        {"05 00 00 00 00 09 00 00 01", ""},          // mode JTAG
        {"05 00 00 00 00 0e 00 00 10", ""},          // device 16
        {"05 00 04 00 00 41 00 00 00", "41010000"},  // MGCMD, not initialised
        {"07 00 00 00 00 40 00 00 0f 00 02", ""},    // initialise MGCMD
        {"09 00 08 00 00 41 00 00 02 00 f0 ff ff",
         "4100000201"
         "01fff2"},  // XOR 15, plus 2
    };
    Bench bench;
    for (const Exchange& exchange : exchanges) {
        EXPECT_EQ(bench.ask(exchange.frame), exchange.reply) << exchange.frame;
    }
    EXPECT_THAT(bench.control("state 0"),
                HasSubstr("delay=300 mode=1 device=16 readbits=0x0000 writebits=0x0000 mgcmd=ready "
                          "mgcmd-first=0x000f mgcmd-second=0x0002 xap=0x0000 dfu=1"));
}

TEST(AdapterTest, AnswersTheLongestMgcmdCommand) {
    std::vector<std::uint8_t> frame = fromHex("fd 03 fc 03 00 41 00 01 fc");
    frame.resize(1025, 0x11);
    Bench bench;
    bench.ask("07 00 00 00 00 40 00 00 00 00 01");
    const Answer answer = bench.exchange(frame);
    EXPECT_EQ(answer.status, 0U);
    ASSERT_EQ(answer.replySize, 1020U);
    EXPECT_EQ(loadBig(bench.reply, 0), 0x4100);
    EXPECT_EQ(loadBig(bench.reply, 1018), 0x1112);
}

TEST(AdapterTest, GivesNoMoreThanTheHostHasRoomFor) {
    Bench bench;
    EXPECT_EQ(bench.ask("03 00 06 00 00 07 00", 3), "070012");
    EXPECT_EQ(bench.ask("03 00 06 00 00 07 00", 0), "");
}

struct Malformed {
    const char* frame;
    const char* verdict;
};

TEST(AdapterTest, RefusesWhatIsNotWellFormedAndSaysWhy) {
    const std::vector<Malformed> cases = {
        {"", "frame-too-short"},
        {"03 00 04 00 00 05", "frame-too-short"},
        {"04 00 04 00 00 05 00", "frame-length"},
        {"03 00 04 00 00 05 00 00", "frame-length"},
        {"03 01 04 00 00 05 00", "frame-length"},
        {"03 00 04 00 01 05 00", "reserved-byte"},
        {"03 00 04 00 00 00 05", "unknown-code"},
        {"03 00 00 00 00 0a 00", "unknown-code"},
        {"05 00 04 00 00 05 00 00 00", "request-length"},
        {"03 00 00 00 00 03 00", "request-length"},
        {"03 00 06 00 00 05 00", "reply-length"},
        {"03 00 00 00 00 07 00", "reply-length"},
        {"05 00 00 00 00 09 00 00 02", "value"},
        {"05 00 00 00 00 0e 00 00 11", "value"},
        {"03 00 04 00 00 41 00", "request-length"},
        {"05 00 06 00 00 41 00 00 01", "request-length"},
        {"05 00 00 00 00 41 00 00 00", "reply-length"},
        {"05 00 fe 03 00 41 00 01 fd", "over-budget"},
        {"07 00 00 00 00 0f 00 00 02 00 00", "value"},
        {"07 00 0a 00 00 01 00 00 00 00 01", "reply-length"},
        {"07 00 02 04 00 01 00 00 00 01 fe", "over-budget"},
        {"05 00 00 00 00 02 00 00 00", "entry-truncated"},
        {"08 00 00 00 00 02 00 00 00 00 01 00", "entry-truncated"},
        {"09 00 08 00 00 01 00 00 00 00 01 00 00", "entry-truncated"},
        {"0f 00 0c 00 00 01 00 00 00 00 01 00 00 05 00 00 00 00 01", "entry-code"},
    };
    Bench bench;
    std::uint64_t sequence = 0;
    for (const Malformed& malformed : cases) {
        EXPECT_EQ(bench.ask(malformed.frame), "error 22") << malformed.frame;
        EXPECT_THAT(bench.control("log 0 " + std::to_string(++sequence)),
                    HasSubstr(std::string("verdict=") + malformed.verdict + " "))
            << malformed.frame;
    }
    EXPECT_EQ(bench.exchange(fromHex("03 00 04 00 00 05 00"), 4, 0x220004).status, kRefusal);
    EXPECT_THAT(bench.control("log 0"), HasSubstr("verdict=control-code"));
}

struct FirmwareCase {
    const char* firmware;
    bool hasMgcmd;
    bool hasCommandBits;
};

TEST(AdapterTest, OldFirmwareLacksCommands) {
    const std::vector<FirmwareCase> cases = {
        {"0.4", true, false},  {"0.200", true, false}, {"1.0", false, false},
        {"1.4", false, false}, {"1.5", true, false},   {"1.8", true, false},
        {"1.9", true, true},   {"1.10", true, true},   {"2.0", true, true},
    };
    for (const FirmwareCase& test : cases) {
        SCOPED_TRACE(test.firmware);
        Bench bench;
        bench.control(std::string("set 0 firmware ") + test.firmware);
        EXPECT_EQ(bench.ask("07 00 00 00 00 40 00 00 00 00 00"), test.hasMgcmd ? "" : "error 22");
        EXPECT_EQ(bench.ask("07 00 06 00 00 41 00 00 01 12 34"),
                  test.hasMgcmd ? "410000011234" : "410100010000");
        EXPECT_EQ(bench.ask("07 00 00 00 00 0f 00 00 01 00 05"),
                  test.hasCommandBits ? "" : "error 22");
    }
}

TEST(AdapterTest, ReportsTheXapStateThatIsSet) {
    const std::vector<Exchange> cases = {{"stopped", "04000001"},
                                         {"running", "04000000"},
                                         {"0x0100", "04000100"},
                                         {"failing", "04010100"}};
    Bench bench;
    for (const Exchange& test : cases) {
        EXPECT_EQ(bench.control(std::string("xap 0 ") + test.frame), "ok\n");
        EXPECT_EQ(bench.ask("03 00 04 00 00 04 00"), test.reply);
    }
}

}  // namespace
}  // namespace quillsim::test
