// An adapter's answers, the requests that it refuses, and the language that steers it.
#include "sim/model/adapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "sim/model/command.h"
#include "sim/model/faults.h"
#include "sim/text_sink.h"

namespace quillsim::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kGetDelay = "03 00 04 00 00 05 00";
constexpr const char* kSetDelay = "05 00 00 00 00 03 00 00 09";

constexpr std::uint32_t kRefusal = 22;

// Ignores spaces.
std::vector<std::uint8_t> fromHex(std::string text) {
    std::erase(text, ' ');
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at < text.size(); at += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
    return bytes;
}

// An adapter on the test's own bench: frames and replies as lower-case hexadecimal text.
class Bench {
   public:
    Answer exchange(const std::vector<std::uint8_t>& frame, std::uint32_t capacity = 1020,
                    std::uint32_t controlCode = kControlCode) {
        // Has no room beyond the frame's end, so that a read there is found.
        const std::vector<std::uint8_t> copy(frame.begin(), frame.end());
        return adapter->handle({controlCode, capacity, copy}, reply);
    }

    // The reply to a frame, or "error " and the status.
    std::string ask(const std::string& frame, std::uint32_t capacity = 1020) {
        const Answer answer = exchange(fromHex(frame), capacity);
        if (answer.status != 0) return "error " + std::to_string(answer.status);
        std::string text;
        if (answer.replySize > 0) writerTo(text).bytes(Bytes(reply).first(answer.replySize));
        return text;
    }

    // A command's answer, its outcome included.
    std::string control(std::string_view line) {
        Adapter* const adapters[] = {adapter.get()};
        std::string text;
        TextWriter writer = writerTo(text);
        runCommand({adapters, [](void*, std::size_t, bool) { return true; }}, line, writer);
        return text;
    }

    const std::unique_ptr<Adapter> adapter = std::make_unique<Adapter>(0x12345678, kRefusal);
    std::vector<std::uint8_t> reply = std::vector<std::uint8_t>(kReplyRoom);
};

TEST(AdapterTest, AnswersEveryCommand) {
    const struct {
        const char* frame;
        const char* reply;
    } exchanges[] = {
        {"03 00 06 00 00 07 00", "070012345678"},    // adapter id
        {"03 00 04 00 00 08 00", "08000109"},        // firmware version
        {kGetDelay, "05000004"},                     // delay at power-on
        {"05 00 00 00 00 03 00 01 2c", ""},          // set delay 300
        {kGetDelay, "0500012c"},                     //
        {"03 00 04 00 00 04 00", "04000000"},        // XAP runs
        {"03 00 00 00 00 06 00", ""},                // DFU
        {"05 00 00 00 00 09 00 00 01", ""},          // mode JTAG
        {"05 00 00 00 00 0e 00 00 10", ""},          // device 16
        {"05 00 04 00 00 41 00 00 00", "41010000"},  // MGCMD, not initialised
        {"07 00 00 00 00 40 00 00 0f 00 02", ""},    // initialise MGCMD
        // XOR 15, plus 2.
        {"09 00 08 00 00 41 00 00 02 00 f0 ff ff", "410000020101fff2"},
        // Write two words at 10, read three from 0f, and write one that the read does not show.
        {"1d 00 0c 00 00 02 00 00 10 00 02 ab cd 12 34 00 00 01 00 00 0f 00 03"
         "00 00 02 00 00 11 00 01 ff ff",
         "0100000f00030000abcd1234"},
        // Reads of ffff and 0, which is the next, and of 10 and 11.
        {"0f 00 14 00 00 01 00 ff ff 00 02 00 00 01 00 00 10 00 02",
         "0100ffff00021111222201000010"
         "0002abcdffff"},
        // Of two faulty words, and a write to them that is lost.
        {"0f 00 12 00 00 01 00 00 20 00 01 00 00 01 00 00 1f 00 02",
         "010100200001000301010"
         "01f000200000003"},
        {"09 00 00 00 00 02 00 00 20 00 01 00 07", ""},
        {"07 00 08 00 00 01 00 00 20 00 01", "0101002000010003"},
    };
    Bench bench;
    bench.control("poke 0 0xffff 0x1111 0x2222");
    bench.control("poke 0 0x20 3");
    bench.control("faulty 0 0x20 0x20");
    for (const auto& exchange : exchanges) {
        EXPECT_EQ(bench.ask(exchange.frame), exchange.reply) << exchange.frame;
    }
    EXPECT_THAT(bench.control("state 0"),
                HasSubstr("delay=300 mode=1 device=16 readbits=0x0000 writebits=0x0000 mgcmd=ready "
                          "mgcmd-first=0x000f mgcmd-second=0x0002 xap=0x0000 dfu=1"));
    EXPECT_EQ(bench.ask("03 00 06 00 00 07 00", 3), "070012") << "no more than there is room for";
}

TEST(AdapterTest, RefusesWhatIsNotWellFormedAndSaysWhy) {
    const struct {
        const char* verdict;
        const char* frame;
    } cases[] = {
        {"frame-too-short", ""},
        {"frame-too-short", "03 00 04 00 00 05"},
        {"frame-length", "04 00 04 00 00 05 00"},
        {"frame-length", "03 00 04 00 00 05 00 00"},
        {"reserved-byte", "03 00 04 00 01 05 00"},
        {"unknown-code", "03 00 04 00 00 00 05"},
        {"request-length", "05 00 04 00 00 05 00 00 00"},
        {"request-length", "05 00 06 00 00 41 00 00 01"},
        {"reply-length", "03 00 06 00 00 05 00"},
        {"reply-length", "07 00 0a 00 00 01 00 00 00 00 01"},
        {"reply-length", "05 00 00 00 00 41 00 00 00"},
        {"over-budget", "05 00 fe 03 00 41 00 01 fd"},
        {"over-budget", "07 00 02 04 00 01 00 00 00 01 fe"},
        {"value", "05 00 00 00 00 09 00 00 02"},
        {"value", "05 00 00 00 00 0e 00 00 11"},
        {"value", "07 00 00 00 00 0f 00 00 02 00 00"},
        {"entry-truncated", "08 00 00 00 00 02 00 00 00 00 01 00"},
        {"entry-truncated", "0e 00 00 00 00 02 00 00 00 00 01 ab cd 00 00 0f 00 00"},
        {"entry-code", "0f 00 0c 00 00 01 00 00 00 00 01 00 00 05 00 00 00 00 01"},
    };
    Bench bench;
    std::uint64_t sequence = 0;
    for (const auto& malformed : cases) {
        EXPECT_EQ(bench.ask(malformed.frame), "error 22") << malformed.frame;
        EXPECT_THAT(bench.control("log 0 " + std::to_string(++sequence)),
                    HasSubstr(std::string("verdict=") + malformed.verdict + " "))
            << malformed.frame;
    }
    EXPECT_EQ(bench.exchange(fromHex(kGetDelay), 4, 0x220004).status, kRefusal);
    EXPECT_THAT(bench.control("log 0"), HasSubstr("verdict=control-code"));
    EXPECT_EQ(bench.control("peek 0 0 1"), "0x0000\nok\n");
}

TEST(LogTest, ShowsEachAccessWithItsCommandBitsAndTheGaps) {
    Bench bench;
    bench.ask("07 00 00 00 00 0f 00 00 01 00 05");
    bench.ask(
        "19 00 08 00 00 01 00 00 10 00 01 00 01 0f 00 00 00 00 03 00 00 02 00 00 20 00 01"
        "00 09");
    const std::string log = bench.control("log 0");
    EXPECT_THAT(log, HasSubstr("ops=write-bits(0x0005) gaps=zero\n"));
    EXPECT_THAT(log, HasSubstr("ops=read(0x0010,1,bits=0x0000)+read-bits(0x0003)+"
                               "write(0x0020,1,bits=0x0005) gaps=used\n"));
    EXPECT_THAT(log, HasSubstr(" frame=070000000"));
}

TEST(LogTest, HoldsTheLatestRequests) {
    Bench bench;
    for (std::size_t i = 0; i < kLogEntries + 9; ++i)
        bench.exchange(std::vector<std::uint8_t>(kLogFrameBytes + 1));
    const std::string log = bench.control("log 0");
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), kLogEntries + 1);
    EXPECT_THAT(log, StartsWith("seq=10 "));
    EXPECT_THAT(log, HasSubstr(" size=1041 "));
}

TEST(CommandTest, RefusesWhatItDoesNotUnderstandAndChangesNothing) {
    Bench bench;
    const std::string before = bench.control("state 0");
    std::istringstream lines(
        "|nothing|state|state 1|state 0 0|log 0 all|fault 0 sillence|fault 0 delay|"
        "fault 0 delay 4294967296|fault 0 runt 4|fault 0 silence 0|"
        "fault 0 silence times=1|xap 0 0x10000|faulty 0 2 1|peek 0 0 65537|poke 0 0|"
        "poke 0 0 1 0x|set 0 firmware 1.256|set 0 id -1|set 0 colour 1");
    for (std::string line; std::getline(lines, line, '|');) {
        EXPECT_THAT(bench.control(line), StartsWith("error: ")) << line;
    }
    EXPECT_EQ(bench.control("state 0"), before);
    EXPECT_EQ(bench.control("peek 0 0 1"), "0x0000\nok\n");
}

TEST(CommandTest, CountsRequestsAndOpens) {
    Bench bench;
    bench.adapter->opened();
    bench.adapter->opened();
    bench.adapter->closed();
    bench.ask(kGetDelay);
    EXPECT_EQ(bench.control("count 0"), "requests=1 opens=2 open=1 peak=2\nok\n");
    EXPECT_EQ(bench.control("log 0 clear"), "ok\n");
    EXPECT_EQ(bench.control("log 0"), "ok\n");
    EXPECT_EQ(bench.control("count 0"), "requests=1 opens=1 open=1 peak=1\nok\n");
}

TEST(FaultTest, StrikesTheRequestsThatItIsArmedFor) {
    const struct {
        const char* options;
        const char* struck;  // of get, set, get, get, set: x struck
    } cases[] = {{"", "x...."},
                 {"2", "xx..."},
                 {"always", "xxxxx"},
                 {"skip=3", "...x."},
                 {"2 skip=1", ".xx.."},
                 {"code=0x0300", ".x..."},
                 {"always code=0x500", "x.xx."},
                 {"code=0x0300 skip=1", "....x"}};
    for (const auto& test : cases) {
        Bench bench;
        ASSERT_EQ(bench.control(std::string("fault 0 refuse 5 ") + test.options), "ok\n");
        std::string struck;
        for (const char* frame : {kGetDelay, kSetDelay, kGetDelay, kGetDelay, kSetDelay}) {
            struck += bench.ask(frame) == "error 5" ? 'x' : '.';
        }
        EXPECT_EQ(struck, test.struck) << test.options;
    }
}

TEST(FaultTest, SeveralStrikeOneRequestUntilTheyAreCleared) {
    Bench bench;
    bench.control("fault 0 delay 7");
    bench.control("fault 0 short 2");
    const Answer answer = bench.exchange(fromHex(kGetDelay), 4);
    EXPECT_EQ(answer.delayMicroseconds, 7000U);
    EXPECT_EQ(answer.replySize, 2U);
    EXPECT_THAT(bench.control("log 0"), HasSubstr(" faults=delay+short end=completion "));
    for (std::size_t i = 0; i < kMostFaults; ++i) EXPECT_EQ(bench.control("fault 0 close"), "ok\n");
    EXPECT_EQ(bench.control("fault 0 close"), "error: too many faults are armed\n");
    bench.exchange(fromHex(kSetDelay));  // which is not carried out
    EXPECT_EQ(bench.control("clear 0"), "ok\n");
    EXPECT_EQ(bench.ask(kGetDelay), "05000004");
}

}  // namespace
}  // namespace quillsim::test
