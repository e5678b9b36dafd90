// Batches: entries, the gaps between them, and the chip memory behind them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/sim/bench.h"

namespace quillsim::test {
namespace {

using testing::HasSubstr;

TEST(BatchTest, CarriesOutEntriesInOrder) {
    Bench bench;
    // Write two words at 10, read three from 0f; another write after the read does not show in it.
    EXPECT_EQ(bench.ask("1d 00 0c 00 00 02 00 00 10 00 02 ab cd 12 34 00 00 01 00 00 0f 00 03"
                        "00 00 02 00 00 11 00 01 ff ff"),
              "0100000f00030000abcd1234");
    EXPECT_EQ(bench.control("peek 0 0x10 2"), "0xabcd 0xffff\nok\n");
}

TEST(BatchTest, AnswersReadsBackToBack) {
    Bench bench;
    bench.control("poke 0 0xffff 0x1111 0x2222");
    // The addresses wrap.
    EXPECT_EQ(bench.ask("0f 00 12 00 00 01 00 ff ff 00 02 00 00 01 00 00 00 00 01"),
              "0100ffff000211112222"
              "0100000000012222");
}

TEST(BatchTest, AnswersTheLongestRead) {
    Bench bench;
    bench.control("poke 0 504 0xbeef");
    const Answer answer = bench.exchange(fromHex("07 00 f8 03 00 01 00 00 00 01 f9"));
    EXPECT_EQ(answer.status, 0U);
    ASSERT_EQ(answer.replySize, 1016U);
    EXPECT_EQ(loadBig(bench.reply, 1014), 0xBEEF);
}

TEST(BatchTest, ReportsFaultyWordsAndLosesWritesToThem) {
    Bench bench;
    bench.control("poke 0 0x20 1 2 3");
    bench.control("faulty 0 0x21 0x21");
    // Reads of 20, of 20 to 22, and of 22.
    EXPECT_EQ(bench.ask("17 00 1c 00 00 01 00 00 20 00 01 00 00 01 00 00 20 00 03"
                        "00 00 01 00 00 22 00 01"),
              "0100002000010001"
              "010100200003000100020003"
              "0100002200010003");
    EXPECT_EQ(bench.ask("0b 00 00 00 00 02 00 00 20 00 02 00 07 00 08"), "");
    EXPECT_EQ(bench.control("peek 0 0x20 2"), "0x0007 0x0002\nok\n");
    bench.control("faulty 0 none");
    EXPECT_EQ(bench.ask("07 00 08 00 00 01 00 00 21 00 01"), "0100002100010002");
}

TEST(BatchTest, RefusedBatchChangesNothing) {
    Bench bench;
    // A write, then an entry cut off.
    EXPECT_EQ(bench.ask("0e 00 00 00 00 02 00 00 10 00 01 ab cd 00 00 0f 00 00"), "error 22");
    EXPECT_EQ(bench.control("peek 0 0x10 1"), "0x0000\nok\n");
}

TEST(BatchTest, LogShowsEachAccessWithItsCommandBitsAndTheGaps) {
    Bench bench;
    bench.ask("07 00 00 00 00 0f 00 00 01 00 05");
    bench.ask(
        "19 00 08 00 00 01 00 00 10 00 01 00 01 0f 00 00 00 00 03 00 00 02 00 00 20 00 01"
        "00 09");
    bench.ask("07 00 08 00 00 01 00 00 10 00 01");
    const std::string log = bench.control("log 0");
    EXPECT_THAT(log, HasSubstr("ops=write-bits(0x0005) gaps=zero\n"));
    EXPECT_THAT(log, HasSubstr("ops=read(0x0010,1,bits=0x0000)+read-bits(0x0003)+"
                               "write(0x0020,1,bits=0x0005) gaps=used\n"));
    EXPECT_THAT(log, HasSubstr("ops=read(0x0010,1,bits=0x0003) gaps=zero\n"));
    EXPECT_THAT(log, HasSubstr(" frame=0700080000010000100001 reply=0100001000010000 "));
}

}  // namespace
}  // namespace quillsim::test
