// Sequences: how they are split and packed, what they carry along, and what they deliver.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Sequence : public testing::Test {
   protected:
    void useFirmware(const char* version) {
        simulator_.control(std::string("set 0 firmware ") + version);
        stream_.set("SPIPORT", "0");
        simulator_.takeFrames();
    }
    // The frames that some actions make.
    Frames framesOf(std::vector<SpiAction> actions) {
        EXPECT_EQ(outcome(stream_.run(std::move(actions))), Failure());
        return simulator_.takeFrames();
    }

    Simulator simulator_;
    const Stream stream_{"0"};
};

// One action of a case: r and w with address and length, v with name and value.
struct Step {
    char kind;
    unsigned address;
    unsigned length;
    const char* name = nullptr;
    const char* value = nullptr;
};

TEST_F(Sequence, IsSplitAndPacked) {
    const Words words = countingWords(2000);
    const auto part = [&](std::size_t from, std::size_t count) {
        return Words(words.begin() + static_cast<long>(from),
                     words.begin() + static_cast<long>(from + count));
    };
    const auto reads = [](unsigned count) {
        Batch batch;
        for (unsigned i = 0; i < count; ++i) batch.read(7, 1);
        return batch;
    };
    const std::string setDelay0 = hex("0500 0000 00 0300 0000");

    const struct {
        const char* what;
        const char* firmware;
        std::vector<Step> steps;
        Frames frames;
    } cases[] = {
        {"nothing", "1.8", {}, {}},
        {"one read", "1.8", {{'r', 0x10, 2}}, {hex("0700 0a00 00 0100 0010 0002")}},
        {"one write", "1.8", {{'w', 0xFFFE, 2}}, {hex("0b00 0000 00 0200 fffe 0002 1000 1001")}},
        {"longest read piece", "1.8", {{'r', 0, 505}}, {Batch().read(0, 505)}},
        {"two read pieces",
         "1.8",
         {{'r', 0x100, 1010}},
         {Batch().read(0x100, 505), Batch().read(0x2F9, 505)}},
        {"address wraps",
         "1.8",
         {{'r', 0xFFFF, 1010}},
         {Batch().read(0xFFFF, 505), Batch().read(0x01F8, 505)}},
        {"longest write pieces",
         "1.8",
         {{'w', 0x8000, 1009}},
         {Batch().write(0x8000, part(0, 504)), Batch().write(0x81F8, part(504, 504)),
          Batch().write(0x83F0, part(1008, 1))}},
        {"rest of a read with a write",
         "1.8",
         {{'r', 0, 506}, {'w', 9, 1}},
         {Batch().read(0, 505), Batch().read(505, 1).write(9, part(0, 1))}},
        {"order is kept",
         "1.8",
         {{'w', 1, 1}, {'r', 2, 1}, {'w', 3, 1}},
         {Batch().write(1, part(0, 1)).read(2, 1).write(3, part(0, 1))}},
        {"replies just fit",
         "1.8",
         {{'r', 1, 251}, {'r', 2, 251}},
         {Batch().read(1, 251).read(2, 251)}},
        {"replies are too long",
         "1.8",
         {{'r', 1, 254}, {'r', 2, 254}},
         {Batch().read(1, 254), Batch().read(2, 254)}},
        {"replies are just too long",
         "1.8",
         {{'r', 1, 251}, {'r', 2, 252}},
         {Batch().read(1, 251), Batch().read(2, 252)}},
        {"requests just fit",
         "1.8",
         {{'w', 1, 250}, {'w', 2, 250}},
         {Batch().write(1, part(0, 250)).write(2, part(0, 250))}},
        {"requests are just too long",
         "1.8",
         {{'w', 1, 250}, {'w', 2, 251}},
         {Batch().write(1, part(0, 250)), Batch().write(2, part(0, 251))}},
        {"most entries", "1.8", std::vector<Step>(128, {'r', 7, 1}), {reads(127), reads(1)}},
        {"bits and a longest write",
         "1.9",
         {{'w', 5, 504}},
         {Batch().bits(1, 0), Batch().write(5, part(0, 504))}},
        {"bits and a longest read", "1.9", {{'r', 5, 505}}, {Batch().bits(0, 0).read(5, 505)}},
        {"bits of each kind once",
         "1.9",
         {{'r', 5, 1}, {'w', 6, 1}, {'r', 7, 1}, {'w', 8, 1}},
         {Batch()
              .bits(0, 0)
              .read(5, 1)
              .bits(1, 0)
              .write(6, part(0, 1))
              .read(7, 1)
              .write(8, part(0, 1))}},
        {"nothing to read", "1.8", {{'r', 5, 0}}, {}},
        {"nothing to read, with bits", "1.9", {{'r', 5, 0}}, {Batch().bits(0, 0)}},
        {"unknown type", "1.8", {{'?', 5, 1}, {'r', 5, 1}}, {Batch().read(5, 1)}},
        {"clock between",
         "1.8",
         {{'r', 5, 1}, {'v', 0, 0, "SPICLOCK", "2000"}, {'r', 6, 1}},
         {Batch().read(5, 1), setDelay0, Batch().read(6, 1)}},
        {"unknown variable sends",
         "1.8",
         {{'r', 5, 1}, {'v', 0, 0, "NONE", "1"}, {'r', 6, 1}},
         {Batch().read(5, 1), Batch().read(6, 1)}},
        {"bits are sent again after a change of mode",
         "1.9",
         {{'r', 5, 1}, {'w', 6, 1}, {'v', 0, 0, "QUILLMODE", "SPI"}, {'r', 5, 1}, {'w', 6, 1}},
         {Batch().bits(0, 0).read(5, 1).bits(1, 0).write(6, part(0, 1)),
          hex("0500 0000 00 0900 0000"),
          Batch().bits(0, 0).read(5, 1).bits(1, 0).write(6, part(0, 1))}},
        {"bits do not send",
         "1.9",
         {{'r', 5, 1}, {'v', 0, 0, "SPICMDREADBITS", "010"}, {'r', 6, 1}, {'r', 7, 1}},
         {Batch().bits(0, 0).read(5, 1).bits(0, 8).read(6, 1).read(7, 1)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        stream_.set("QUILLMODE", "SPI");  // forgets the adapter's bits and delay
        stream_.set("SPICMDBITS", "0");
        useFirmware(c.firmware);
        Words target(2000);
        std::vector<SpiAction> actions;
        for (const Step& step : c.steps) {
            SpiAction action =
                step.kind == 'w' ? writeFrom(step.address, words) : readInto(step.address, target);
            action.u.memory.length = step.length;
            if (step.kind == 'v') action = setting(step.name, step.value);
            if (step.kind == '?') action.type = 7;
            actions.push_back(action);
        }
        EXPECT_EQ(framesOf(actions), c.frames);
    }
}

TEST_F(Sequence, DeliversTheWholeMemory) {
    Words written = countingWords(65535, 77);
    Words read(65535);
    EXPECT_EQ(stream_.run({writeFrom(0, written), readInto(0, read)}), 0);
    EXPECT_EQ(read, written);
    EXPECT_EQ(simulator_.control("peek 0 0xfffe 2"), "0x004b 0x0000\n");
    // 131 pieces to write and 130 to read; the last of the former and the first of the latter fit
    // one batch command. Two requests came before.
    EXPECT_EQ(simulator_.takeFrames().size(), 2U + 131 + 130 - 1);
}

TEST_F(Sequence, TakesArraysAndBuffersAtAnyAddress) {
    alignas(8) char array[2 * sizeof(SpiAction) + 1];
    alignas(8) char buffer[9] = "\x11\x22\x33\x44";
    auto* const words = reinterpret_cast<std::uint16_t*>(buffer + 1);
    SpiAction actions[2] = {};
    for (SpiAction& action : actions) {
        action.u.memory.address = 0x40;
        action.u.memory.length = 1;
        action.u.memory.data = words;
    }
    actions[0].type = SPIFNS_WRITE;
    actions[0].reserved = actions[1].reserved = 0xEEEEEEEE;
    actions[1].u.memory.reserved0 = actions[1].u.memory.reserved1 = 0xEEEEEEEE;
    actions[1].u.memory.data = reinterpret_cast<std::uint16_t*>(buffer + 5);
    std::memcpy(array + 1, actions, sizeof actions);
    EXPECT_EQ(spifns_stream_sequence(stream_.id(), reinterpret_cast<SpiAction*>(array + 1), 2), 0);
    EXPECT_EQ(std::string(buffer + 5, 2), "\x22\x33");
}

TEST_F(Sequence, CountsAboveTheSignedLimitAreEmpty) {
    simulator_.takeFrames();
    Words word(1);
    SpiAction action = readInto(1, word);
    for (const std::uint32_t count : {0U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(spifns_stream_sequence(stream_.id(), &action, count), 0) << count;
        EXPECT_EQ(spifns_stream_sequence(stream_.id(), nullptr, count), 0) << count;
    }
    EXPECT_THAT(simulator_.takeFrames(), IsEmpty());
}

TEST_F(Sequence, RefusesWhatItCannotDo) {
    Words word = {0xABCD};
    SpiAction noBuffer = readInto(5, word);
    noBuffer.u.memory.data = nullptr;
    SpiAction tooLong = writeFrom(5, word);
    tooLong.u.memory.length = 0x10000;
    SpiAction bothWrong = readInto(0xFFFFFFFF, word);
    bothWrong.u.memory.length = 0x10000;
    const Failure invalid = {1, 0, "Invalid variable or value"};
    const struct {
        SpiAction action;
        Failure failure;
        bool sendsBefore;
    } cases[] = {
        {readInto(0x10000, word), {265, 65536, "Invalid address"}, false},
        {writeFrom(0x12345, word), {265, 0x12345, "Invalid address"}, false},
        {bothWrong, {265, 0xFFFFFFFF, "Invalid address"}, false},
        {tooLong, {266, 0, "Read or write too long"}, false},
        {noBuffer, invalid, false},
        {setting("SPIMUL", nullptr), invalid, true},
        {setting("SPICMDBITS", nullptr), invalid, false},
        {setting(nullptr, "1"), invalid, true},
        {setting(nullptr, nullptr), invalid, true},
        {setting("SPIMUL", "17"), {1, 0, "SPIMUL is out of range (valid value: 0 - 16)"}, true},
        {setting("SPIPORT", "77"), {514, 0, "Couldn't find device with id (77)"}, true},
    };
    useFirmware("1.9");
    Words read(1);
    stream_.run({readInto(9, read), writeFrom(9, word)});
    simulator_.takeFrames();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.failure.text);
        EXPECT_EQ(outcome(stream_.run({readInto(8, read), c.action, writeFrom(8, word)})),
                  c.failure);
        EXPECT_EQ(simulator_.takeFrames(), c.sendsBefore ? Frames{Batch().read(8, 1)} : Frames{});
    }
    EXPECT_EQ(outcome(spifns_stream_sequence(stream_.id(), nullptr, 1)), invalid);
}

TEST_F(Sequence, SendsCommandBitsOnlyWhenTheAdapterHasOthers) {
    Words word(1);
    const SpiAction read = readInto(1, word);
    const Words zero = {0};
    const SpiAction write = writeFrom(2, zero);
    useFirmware("1.9");
    // Selecting again keeps what is known of the adapter.
    EXPECT_THAT(framesOf({read}), ElementsAre(Batch().bits(0, 0).read(1, 1)));
    stream_.set("SPIPORT", "0");
    simulator_.takeFrames();
    EXPECT_THAT(framesOf({read}), ElementsAre(Batch().read(1, 1)));
    EXPECT_THAT(framesOf({write}), ElementsAre(Batch().bits(1, 0).write(2, {0})));

    EXPECT_THAT(framesOf({setting("SPICMDBITS", "0x40")}), IsEmpty());
    EXPECT_EQ(stream_.get("SPICMDBITS"), "0x40");
    EXPECT_THAT(framesOf({read, write}),
                ElementsAre(Batch().bits(0, 0x40).read(1, 1).bits(1, 0x40).write(2, {0})));
    EXPECT_THAT(framesOf({setting("SPICMDWRITEBITS", "70000junk"), read, write}),
                ElementsAre(Batch().read(1, 1).bits(1, 0x1170).write(2, {0})));
    EXPECT_EQ(stream_.get("SPICMDBITS"), "MISMATCH");
    EXPECT_EQ(stream_.get("SPICMDREADBITS"), "0x40");
    EXPECT_EQ(stream_.get("SPICMDWRITEBITS"), "0x1170");

    // 0xFFFF stands for unknown, and so is sent only while something else is known.
    EXPECT_THAT(framesOf({setting("SPICMDREADBITS", "-1"), read, read}),
                ElementsAre(Batch().bits(0, 0xFFFF).read(1, 1).read(1, 1)));
    EXPECT_THAT(framesOf({read}), ElementsAre(Batch().read(1, 1)));
    stream_.set("SPICMDREADBITS", "0x40");

    // What is dropped unsent is not taken for sent, and what fails is sent again.
    EXPECT_EQ(stream_.run({setting("SPICMDREADBITS", "7"), read, readInto(0x10000, word)}), 1);
    EXPECT_THAT(simulator_.takeFrames(), IsEmpty());
    simulator_.control("fault 0 refuse 5");
    EXPECT_EQ(stream_.run({read}), 1);
    simulator_.takeFrames();
    EXPECT_THAT(framesOf({read, write}),
                ElementsAre(Batch().bits(0, 7).read(1, 1).bits(1, 0x1170).write(2, {0})));

    // Another stream of the adapter has its own bits, and shares what the adapter was given.
    const Stream other("100");
    simulator_.takeFrames();
    EXPECT_EQ(other.run({setting("SPICMDREADBITS", "7"), read}), 0);
    EXPECT_THAT(simulator_.takeFrames(), ElementsAre(Batch().read(1, 1)));
    EXPECT_EQ(other.run({write}), 0);
    EXPECT_THAT(simulator_.takeFrames(), ElementsAre(Batch().bits(1, 0).write(2, {0})));
    EXPECT_THAT(framesOf({write}), ElementsAre(Batch().bits(1, 0x1170).write(2, {0})));
}

TEST_F(Sequence, EndsWithAReadThatFails) {
    simulator_.control("faulty 0 0x1234 0x1234");
    simulator_.takeFrames();
    Words many(600);
    EXPECT_EQ(outcome(stream_.read(0x1234, many)),
              (Failure{517, 0x3412, "Read failed on USB-SPI"}));
    EXPECT_THAT(simulator_.takeFrames(), ElementsAre(Batch().read(0x1234, 505)));
}

}  // namespace
}  // namespace wrenlink::test
