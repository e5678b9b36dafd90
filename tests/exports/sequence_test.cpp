// Sequences: how they are split and packed, what they carry along, and what they deliver.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

class Sequence : public testing::Test {
   protected:
    Sequence() { simulator_.takeFrames(); }

    void useFirmware(const char* version) {
        simulator_.control(std::string("set 0 firmware ") + version);
        stream_.set("SPIPORT", "0");
        simulator_.takeFrames();
    }

    struct Exchange {
        std::string steps;
        std::string frames;
        Failure failure = {};
    };
    void expectExchange(const Stream& stream, const Exchange& exchange) {
        EXPECT_EQ(outcome(stream.run(exchange.steps)), exchange.failure) << exchange.steps;
        EXPECT_EQ(simulator_.takeFrames(), frames(exchange.frames)) << exchange.steps;
    }

    Simulator simulator_;
    const Stream stream_{"0"};
};

TEST_F(Sequence, IsSplitAndPacked) {
    std::string reads;
    for (int i = 0; i < 127; ++i) reads += "r7:1 ";
    const Exchange exchanges[] = {
        {"", ""},
        {"r10:2", "0700 0a00 00 0100 0010 0002"},
        {"wfffe:2", "0b00 0000 00 0200 fffe 0002 0ffe 0fff"},
        // Long accesses are sent in pieces, whose addresses wrap.
        {"r0:505", "r0:505"},
        {"r100:1010", "r100:505 | r2f9:505"},
        {"rffff:1010", "rffff:505 | r1f8:505"},
        {"w8000:1009", "w8000:504 | w81f8:504 | w83f0:1"},
        {"r0:506 w9:1", "r0:505 | r1f9:1 w9:1"},
        {"w1:1 r2:1 w3:1", "w1:1 r2:1 w3:1"},
        // Replies, requests and entries that just fit, and that do not.
        {"r1:251 r2:251", "r1:251 r2:251"},
        {"r1:251 r2:252", "r1:251 | r2:252"},
        {"r1:254 r2:254", "r1:254 | r2:254"},
        {"w1:250 w2:250", "w1:250 w2:250"},
        {"w1:250 w2:251", "w1:250 | w2:251"},
        {reads + "r7:1", reads + " | r7:1"},
        {"r5:0", ""},
        {"?5:1 r5:1", "r5:1"},
        {"r5:1 SPICLOCK=2000 r6:1", "r5:1 | 0500 0000 00 0300 0000 | r6:1"},
        {"r5:1 NONE=1 r6:1", "r5:1 | r6:1"},
    };
    for (const Exchange& exchange : exchanges) expectExchange(stream_, exchange);
}

TEST_F(Sequence, TakesArraysAndBuffersAtAnyAddress) {
    alignas(8) char array[2 * sizeof(SpiAction) + 1];
    alignas(8) char buffer[9] = "\x11\x22\x33\x44";
    auto* const written = reinterpret_cast<std::uint16_t*>(buffer + 1);
    auto* const read = reinterpret_cast<std::uint16_t*>(buffer + 5);
    constexpr std::uint32_t kReserved = 0xEEEEEEEE;
    const SpiAction actions[] = {
        {SPIFNS_WRITE, kReserved, {.memory = {kReserved, 0x40, 1, kReserved, written}}},
        {SPIFNS_READ, kReserved, {.memory = {kReserved, 0x40, 1, kReserved, read}}}};
    std::memcpy(array + 1, actions, sizeof actions);
    EXPECT_EQ(spifns_stream_sequence(stream_.id(), reinterpret_cast<SpiAction*>(array + 1), 2), 0);
    EXPECT_EQ(std::string(buffer + 5, 2), "\x22\x33");
}

TEST_F(Sequence, CountsAboveTheSignedLimitAreEmpty) {
    Words word(1);
    SpiAction action = readInto(1, word);
    for (const std::uint32_t count : {0U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(spifns_stream_sequence(stream_.id(), &action, count), 0) << count;
        EXPECT_EQ(spifns_stream_sequence(stream_.id(), nullptr, count), 0) << count;
    }
    EXPECT_EQ(simulator_.takeFrames(), Frames());
}

TEST_F(Sequence, RefusesWhatItCannotDo) {
    Words word = {0xABCD};
    const auto read = [](std::uint32_t address, std::uint32_t length, std::uint16_t* data) {
        return SpiAction{SPIFNS_READ, 0, {.memory = {0, address, length, 0, data}}};
    };
    SpiAction tooLong = read(5, 0x10000, word.data());
    tooLong.type = SPIFNS_WRITE;
    const Failure invalid = {1, 0, "Invalid variable or value"};
    const struct {
        SpiAction action;
        Failure failure;
        const char* sentBefore;
    } cases[] = {
        {readInto(0x10000, word), {265, 65536, "Invalid address"}, ""},
        {writeFrom(0x12345, word), {265, 0x12345, "Invalid address"}, ""},
        {read(0xFFFFFFFF, 0x10000, word.data()), {265, 0xFFFFFFFF, "Invalid address"}, ""},
        {tooLong, {266, 0, "Read or write too long"}, ""},
        {read(5, 1, nullptr), invalid, ""},
        {setting("SPIMUL", nullptr), invalid, "r8:1"},
        {setting("SPICMDBITS", nullptr), invalid, ""},
        {setting(nullptr, "1"), invalid, "r8:1"},
        {setting(nullptr, nullptr), invalid, "r8:1"},
        {setting("SPIMUL", "17"), {1, 0, "SPIMUL is out of range (valid value: 0 - 16)"}, "r8:1"},
        {setting("SPIPORT", "77"), {514, 0, "Couldn't find device with id (77)"}, "r8:1"},
    };
    useFirmware("1.9");
    stream_.run("r9:1 w9:1");
    simulator_.takeFrames();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.failure.text);
        const SpiAction before = read(8, 1, word.data());
        EXPECT_EQ(outcome(stream_.run({before, c.action, writeFrom(8, word)})), c.failure);
        EXPECT_EQ(simulator_.takeFrames(), frames(c.sentBefore));
    }
    EXPECT_EQ(outcome(spifns_stream_sequence(stream_.id(), nullptr, 1)), invalid);
    // However many are said to follow: no room is made for them.
    SpiAction first = cases[0].action;
    EXPECT_EQ(outcome(spifns_stream_sequence(stream_.id(), &first, 0x7FFFFFFF)), cases[0].failure);
}

TEST_F(Sequence, SendsCommandBitsOnlyWhenTheAdapterHasOthers) {
    useFirmware("1.9");
    const Exchange known[] = {
        {"r1:1", "R=0 r1:1"},
        // Selecting again keeps what is known of the adapter, a change of mode does not.
        {"SPIPORT=0 r1:1", "0300 0400 00 0800 | r1:1"},
        {"w2:504", "W=0 | w2:504"},
        {"QUILLMODE=SPI r5:0", "0500 0000 00 0900 0000 | R=0"},
        {"QUILLMODE=SPI r5:505", "0500 0000 00 0900 0000 | R=0 r5:505"},
        {"QUILLMODE=SPI r5:1 w6:1 r7:1 w8:1 QUILLMODE=SPI r5:1 w6:1",
         "0500 0000 00 0900 0000 | R=0 r5:1 W=0 w6:1 r7:1 w8:1 | 0500 0000 00 0900 0000 | "
         "R=0 r5:1 W=0 w6:1"},
        {"r5:1 SPICMDREADBITS=010 r6:1 r7:1", "r5:1 R=8 r6:1 r7:1"},
        {"SPICMDBITS=0x40", ""},
    };
    for (const Exchange& exchange : known) expectExchange(stream_, exchange);
    EXPECT_EQ(stream_.get("SPICMDBITS"), "0x40");
    expectExchange(stream_, {"r1:1 w2:1", "R=40 r1:1 W=40 w2:1"});
    expectExchange(stream_, {"SPICMDWRITEBITS=70000junk r1:1 w2:1", "r1:1 W=1170 w2:1"});
    EXPECT_EQ(stream_.get("SPICMDBITS"), "MISMATCH");
    EXPECT_EQ(stream_.get("SPICMDREADBITS"), "0x40");
    EXPECT_EQ(stream_.get("SPICMDWRITEBITS"), "0x1170");

    // 0xFFFF stands for unknown, and so is sent only while something else is known.
    expectExchange(stream_, {"SPICMDREADBITS=-1 r1:1 r1:1", "R=ffff r1:1 r1:1"});
    expectExchange(stream_, {"r1:1", "r1:1"});

    // What is dropped unsent is not taken for sent, and what fails is sent again.
    const Failure invalid = {265, 0x10000, "Invalid address"};
    expectExchange(stream_, {"SPICMDREADBITS=7 r1:1 r10000:1", "", invalid});
    simulator_.control("fault 0 refuse 5");
    EXPECT_EQ(stream_.run("r1:1"), 1);
    simulator_.takeFrames();
    expectExchange(stream_, {"r1:1 w2:1", "R=7 r1:1 W=1170 w2:1"});

    // Another stream of the adapter has its own bits, and shares what the adapter was given.
    const Stream other("100");
    simulator_.takeFrames();
    expectExchange(other, {"SPICMDREADBITS=7 r1:1", "r1:1"});
    expectExchange(other, {"w2:1", "W=0 w2:1"});
    expectExchange(stream_, {"w2:1", "W=1170 w2:1"});
}

TEST_F(Sequence, EndsWithAReadThatFails) {
    simulator_.control("faulty 0 0x1234 0x1234");
    expectExchange(stream_, {"r1234:600", "r1234:505", {517, 0x3412, "Read failed on USB-SPI"}});
}

}  // namespace
}  // namespace wrenlink::test
