// Faults: which requests they strike, and what becomes of those.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/model/faults.h"
#include "tests/sim/bench.h"

namespace quillsim::test {
namespace {

using testing::HasSubstr;

constexpr const char* kGetDelay = "03 00 04 00 00 05 00";
constexpr const char* kSetDelay = "05 00 00 00 00 03 00 00 09";

struct FaultCase {
    const char* fault;
    Delivery delivery;
    std::uint32_t status;
    const char* reply;
    std::size_t runtSize;
    std::uint64_t delayMicroseconds;
};

TEST(FaultTest, ChangesOneAnswer) {
    const std::vector<FaultCase> cases = {
        {"delay 250", Delivery::completion, 0, "05000004", 0, 250'000},
        {"silence", Delivery::silence, 0, "-", 0, 0},
        {"close", Delivery::close, 0, "-", 0, 0},
        {"refuse 5", Delivery::completion, 5, "-", 0, 0},
        {"refuse 0xc0000001", Delivery::completion, 0xC0000001, "-", 0, 0},
        {"short 1", Delivery::completion, 0, "050000", 0, 0},
        {"short 9", Delivery::completion, 0, "-", 0, 0},
        {"long 2", Delivery::completion, 0, "05000004eeee", 0, 0},
        {"corrupt 3 0xff", Delivery::completion, 0, "050000fb", 0, 0},
        {"corrupt 4 0xff", Delivery::completion, 0, "05000004", 0, 0},
        {"badstatus 0x0501", Delivery::completion, 0, "05010004", 0, 0},
        {"empty", Delivery::runt, 0, "05000004", 0, 0},
        {"runt 3", Delivery::runt, 0, "05000004", 3, 0},
    };
    for (const FaultCase& test : cases) {
        SCOPED_TRACE(test.fault);
        Bench bench;
        ASSERT_EQ(bench.control(std::string("fault 0 ") + test.fault), "ok\n");
        const Answer answer = bench.exchange(fromHex(kGetDelay), 4);
        EXPECT_EQ(answer.delivery, test.delivery);
        EXPECT_EQ(answer.status, test.status);
        EXPECT_EQ(answer.runtSize, test.runtSize);
        EXPECT_EQ(answer.delayMicroseconds, test.delayMicroseconds);
        std::string reply;
        writerTo(reply).bytes(Bytes(bench.reply).first(answer.replySize));
        EXPECT_EQ(reply, test.reply);
        EXPECT_EQ(bench.ask(kGetDelay), "05000004") << "it strikes once";
    }
}

TEST(FaultTest, OverlongReplyEndsWithTheBuffer) {
    Bench bench;
    bench.control("fault 0 long 100000");
    EXPECT_EQ(bench.exchange(fromHex(kGetDelay), 4).replySize, kReplyRoom);
}

TEST(FaultTest, RequestsThatNeverEndWellAreNotCarriedOut) {
    for (const char* fault : {"silence", "close", "refuse 5"}) {
        Bench bench;
        bench.control(std::string("fault 0 ") + fault);
        bench.exchange(fromHex(kSetDelay));
        EXPECT_EQ(bench.ask(kGetDelay), "05000004") << fault;
    }
}

TEST(FaultTest, StrikesTheRequestsThatItIsArmedFor) {
    struct Case {
        const char* options;
        const char* struck;  // of get, set, get, get, set: x struck
    };
    const std::vector<Case> cases = {
        {"", "x...."},
        {"2", "xx..."},
        {"always", "xxxxx"},
        {"skip=3", "...x."},
        {"2 skip=1", ".xx.."},
        {"code=0x0300", ".x..."},
        {"always code=0x500", "x.xx."},
        {"code=0x0300 skip=1", "....x"},
    };
    for (const Case& test : cases) {
        Bench bench;
        ASSERT_EQ(bench.control(std::string("fault 0 refuse 5 ") + test.options), "ok\n");
        std::string struck;
        for (const char* frame : {kGetDelay, kSetDelay, kGetDelay, kGetDelay, kSetDelay}) {
            struck += bench.ask(frame) == "error 5" ? 'x' : '.';
        }
        EXPECT_EQ(struck, test.struck) << test.options;
    }
}

TEST(FaultTest, SeveralStrikeOneRequestAndTheLogNamesThem) {
    Bench bench;
    bench.control("fault 0 delay 7");
    bench.control("fault 0 short 2");
    const Answer answer = bench.exchange(fromHex(kGetDelay), 4);
    EXPECT_EQ(answer.delayMicroseconds, 7000U);
    EXPECT_EQ(answer.replySize, 2U);
    EXPECT_THAT(bench.control("log 0"), HasSubstr(" faults=delay+short end=completion "));
}

TEST(FaultTest, ClearDisarmsAndAFullListRefuses) {
    Bench bench;
    for (std::size_t i = 0; i < kMostFaults; ++i) EXPECT_EQ(bench.control("fault 0 close"), "ok\n");
    EXPECT_EQ(bench.control("fault 0 close"), "error: too many faults are armed\n");
    EXPECT_EQ(bench.control("clear 0"), "ok\n");
    EXPECT_EQ(bench.ask(kGetDelay), "05000004");
}

}  // namespace
}  // namespace quillsim::test
