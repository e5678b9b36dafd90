// Single commands: their frames, results and the settings that gate them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "quill/adapter_layer.h"
#include "quill/adapter_list.h"
#include "quill/quill_stream.h"
#include "quill/stream_command.h"
#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kGetDelay = hex("0300 0400 00 0500");
const std::string kGetVersion = hex("0300 0400 00 0800");

TEST(Commands, HaveTheirFrames) {
    Simulator simulator;
    const Stream stream("0");
    EXPECT_THAT(simulator.takeFrames(), ElementsAre(hex("0300 0600 00 0700"), kGetVersion));

    const auto set = [&](const char* name, const char* value) {
        return [&stream, name, value] { EXPECT_EQ(stream.set(name, value), 0) << name; };
    };
    const auto command = [&](const char* name) {
        return [&stream, name] { EXPECT_EQ(stream.command(name), nullptr); };
    };
    const auto call = [&](auto function, auto... arguments) {
        return [&stream, function, arguments...] {
            EXPECT_EQ(function(stream.id(), arguments...), 0);
        };
    };
    const struct {
        const char* what;
        std::function<void()> act;
        Frames frames;
    } steps[] = {
        {"an unknown delay is asked for once",
         [&] { EXPECT_EQ(stream.get("SPI_DELAY"), "4"); },
         {kGetDelay}},
        {"and then known", [&] { EXPECT_EQ(stream.get("spiclock"), "1066.098081"); }, {}},
        {"delay", set("SPI_DELAY", "300"), {hex("0500 0000 00 0300 012c")}},
        {"the same delay", set("spi_delay", "0x12C"), {}},
        {"the low 16 bits", set("SPI_DELAY", "70000"), {hex("0500 0000 00 0300 1170")}},
        {"the nearest limit", set("SPI_DELAY", "3000000000"), {hex("0500 0000 00 0300 ffff")}},
        {"which reads as unknown",
         [&] { EXPECT_EQ(stream.get("SPI_DELAY"), "65535"); },
         {kGetDelay}},
        {"and is then not sent", set("SPI_DELAY", "-1"), {}},
        {"clock", set("SPICLOCK", "500"), {hex("0500 0000 00 0300 000c")}},
        {"clock above the maximum", set("SPICLOCK", "1999"), {hex("0500 0000 00 0300 0004")}},
        {"fastest clock", set("SPICLOCK", "2e3"), {hex("0500 0000 00 0300 0000")}},
        {"slowest clock", set("SPICLOCK", "-5"), {hex("0500 0000 00 0300 fffe")}},
        {"lower maximum", set("SPIMAXCLOCK", "900"), {}},
        {"and a clock above it", set("SPICLOCK", "1000"), {hex("0500 0000 00 0300 0006")}},
        {"device", set("SPIMUL", "16"), {hex("0500 0000 00 0e00 0010")}},
        {"device 0", set("SPIMUL", "-1"), {hex("0500 0000 00 0e00 0000")}},
        {"JTAG", set("QUILLMODE", "jTag"), {hex("0500 0000 00 0900 0001")}},
        {"which forgets the delay", [&] { EXPECT_EQ(stream.get("SPI_DELAY"), "6"); }, {kGetDelay}},
        {"SPI", set("QUILLMODE", ""), {hex("0500 0000 00 0900 0000")}},
        {"version", set("SPIPORT", "100"), {kGetVersion}},
        {"DFU", command("dfu"), {hex("0300 0000 00 0600")}},
        {"another command", command("DFUX"), {}},
        {"no command", command(nullptr), {}},
        {"MGCMD start",
         call(spifns_stream_mgcmd_init, std::uint16_t{0x1234}, std::uint16_t{2}),
         {hex("0700 0000 00 4000 1234 0002")}},
        {"MGCMD of nothing",
         call(spifns_stream_mgcmd_cmd, static_cast<std::uint16_t*>(nullptr), std::uint16_t{0}, 1U),
         {hex("0500 0400 00 4100 0000")}},
        {"XAP", call(spifns_stream_marigold_xap_stopped), {hex("0300 0400 00 0400")}},
        {"chip select", [] { spifns_stream_chip_select(); }, {}},
        {"unknown variable", set("SPIFOO", "1"), {}},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        step.act();
        EXPECT_EQ(simulator.takeFrames(), step.frames);
    }
    EXPECT_EQ(lastFailure(), Failure());
}

// The two forms that the operations stand on.
TEST(Commands, FillOnlyTheHeaderThatTheyAreGiven) {
    Simulator simulator;
    QuillStream* const stream = Quill_Stream_Initialise();
    EXPECT_EQ(Quill_Stream_SelectDevice(stream, "0"), 0);
    simulator.takeFrames();
    // The reserved byte is cleared, whatever it was.
    std::uint8_t request[] = {3, 0, 4, 0, 0xEE, 8, 0};
    std::uint8_t reply[10] = {};
    EXPECT_TRUE(Quill_Stream_Command(stream, request, reply));
    EXPECT_THAT(reply, ElementsAre(0, 0, 0, 0, 0, 8, 0, 1, 8, 0));

    std::uint8_t buffer[] = {3, 0, 4, 0, 0xEE, 8, 0, 0, 0, 0};
    EXPECT_TRUE(Quill_Stream_Command(stream, buffer, 0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF));
    EXPECT_THAT(buffer, ElementsAre(3, 0, 4, 0, 0, 8, 0, 1, 8, 0));
    EXPECT_TRUE(Quill_Stream_Command(stream, buffer, 0x0500, 3, 4));
    EXPECT_THAT(buffer, ElementsAre(3, 0, 4, 0, 0, 5, 0, 0, 4, 0));
    EXPECT_THAT(simulator.takeFrames(), ElementsAre(kGetVersion, kGetVersion, kGetDelay));
    Quill_Stream_Finalise(stream);
    Quill_Initialise();
    Quill_Stream_Finalise(nullptr);  // ends one use of the adapter layer all the same
    EXPECT_FALSE(adapterListExists());
}

TEST(Commands, SlowerLengthensTheDelayByAQuarterAndOne) {
    Simulator simulator;
    const Stream stream("0");
    DebugTexts texts(stream);
    const struct {
        const char* before;
        const char* after;
    } cases[] = {{"0", "1"},     {"4", "6"},     {"100", "126"},
                 {"413", "517"}, {"414", "414"}, {"600", "600"}};
    for (const auto& c : cases) {
        EXPECT_EQ(stream.set("SPI_DELAY", c.before), 0);
        texts.take();
        EXPECT_EQ(stream.command("sPiSlower"), nullptr);
        EXPECT_EQ(stream.get("SPI_DELAY"), c.after);
        const std::string set = std::string("Quill Set Delays ") + c.after;
        if (std::string(c.before) == c.after)
            EXPECT_THAT(texts.take(),
                        ElementsAre("WARNING: instructed to set Quill clock too slow. ignoring."));
        else if (std::string(c.after) == "517")
            EXPECT_THAT(
                texts.take(),
                ElementsAre("WARNING: instructed to set Quill clock too slow. honouring.", set));
        else
            EXPECT_THAT(texts.take(), ElementsAre(set));
    }
    // A delay that cannot be had counts as 0.
    stream.set("QUILLMODE", "SPI");
    simulator.control("fault 0 refuse 5 code=0x0500");
    simulator.takeFrames();
    EXPECT_EQ(stream.command("SPISLOWER"), nullptr);
    EXPECT_THAT(simulator.takeFrames(), ElementsAre(kGetDelay, hex("0500 0000 00 0300 0001")));
}

TEST(Commands, MgcmdExchangesItsWords) {
    Simulator simulator;
    const Stream stream("0");
    ASSERT_EQ(spifns_stream_mgcmd_init(stream.id(), 0x00FF, 1), 0);
    simulator.takeFrames();

    for (const std::uint16_t length : Words{1, 3, 508}) {
        Words words = countingWords(length);
        Words answer = words;
        for (std::uint16_t& word : answer) word = static_cast<std::uint16_t>((word ^ 0x00FF) + 1);
        ASSERT_EQ(spifns_stream_mgcmd_cmd(stream.id(), words.data(), length, 1), 0);
        EXPECT_EQ(words, answer);
        const Frames frames = simulator.takeFrames();
        ASSERT_EQ(frames.size(), 1U);
        EXPECT_EQ(frames[0].size(), 2 * (9 + 2 * std::size_t{length}));
        if (length == 508) {
            EXPECT_THAT(frames[0], StartsWith(hex("fd03 fc03 00 4100 01fc 1000 1001")));
        }
    }
    Words words = {0x0102, 0xFF00};
    spifns_stream_mgcmd_cmd(stream.id(), words.data(), 2, 1);
    EXPECT_THAT(simulator.takeFrames(), ElementsAre(hex("0900 0800 00 4100 0002 0102 ff00")));

    DebugTexts texts(stream);
    words = countingWords(509);
    EXPECT_EQ(spifns_stream_mgcmd_cmd(stream.id(), words.data(), 509, 0), 1);
    EXPECT_EQ(lastFailure(), (Failure{1, 0, "MGCMD too long"}));
    EXPECT_THAT(texts.take(), ElementsAre("Too long\n"));
    EXPECT_EQ(spifns_stream_mgcmd_cmd(stream.id(), nullptr, 1, 0), 1);
    EXPECT_EQ(lastFailure(), (Failure{1, 0, "Invalid variable or value"}));
    EXPECT_THAT(simulator.takeFrames(), IsEmpty());

    // The adapter's own failure report counts only with a flag.
    simulator.control("fault 0 badstatus 0x4101 2");
    words = {7, 8};
    EXPECT_EQ(spifns_stream_mgcmd_cmd(stream.id(), words.data(), 2, 0x80000000), 1);
    EXPECT_EQ(lastFailure(), (Failure{517, 0, "MGCMD failed on USB-SPI device"}));
    EXPECT_THAT(texts.take(), ElementsAre("MGCMD failed on quill"));
    EXPECT_EQ(words, (Words{7, 8}));
    spifns_clear_last_error();
    EXPECT_EQ(spifns_stream_mgcmd_cmd(stream.id(), words.data(), 2, 0), 0);
    EXPECT_EQ(words, (Words{0x00F9, 0x00F8}));
    EXPECT_EQ(lastFailure(), Failure());
}

TEST(Commands, FirmwareGatesThem) {
    Simulator simulator;
    const struct {
        const char* firmware;
        const char* text;  // of QUILLVERSION
        bool mgcmd;
        bool cmdBits;
        bool cmdBitsSent;
    } cases[] = {
        {"0.0", "0000", true, true, false},   {"0.255", "00ff", true, true, false},
        {"1.0", "0100", false, false, false}, {"1.4", "0104", false, false, false},
        {"1.5", "0105", true, false, false},  {"1.8", "0108", true, false, false},
        {"1.9", "0109", true, true, true},    {"1.10", "010a", true, true, true},
        {"2.0", "0200", true, true, true},    {"255.8", "ff08", true, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.firmware);
        simulator.control(std::string("set 0 firmware ") + c.firmware);
        const Stream stream("0");
        EXPECT_EQ(stream.get("QuillVersion"), c.text);
        simulator.takeFrames();

        const auto gated = [](bool permitted, const char* text) {
            return permitted ? Failure{} : Failure{520, 0, text};
        };
        Words words = {1};
        EXPECT_EQ(outcome(spifns_stream_mgcmd_init(stream.id(), 1, 2)),
                  gated(c.mgcmd, "Unable to initialise MGCMDs, USB-SPI firmware too old"));
        EXPECT_EQ(outcome(spifns_stream_mgcmd_cmd(stream.id(), words.data(), 1, 1)),
                  gated(c.mgcmd, "Unable to send MGCMD, USB-SPI firmware too old"));
        EXPECT_EQ(simulator.takeFrames().size(), c.mgcmd ? 2U : 0U);
        for (const char* name : {"SPICMDBITS", "SPICMDREADBITS", "spicmdwritebits"})
            EXPECT_EQ(outcome(stream.set(name, "0x20")),
                      gated(c.cmdBits, "Unable to set command bits, USB-SPI firmware too old"))
                << name;
        EXPECT_EQ(stream.get("SPICMDBITS"), c.cmdBits ? "0x20" : "0x0");
        EXPECT_THAT(simulator.takeFrames(), IsEmpty());
        Batch batch;
        if (c.cmdBitsSent) batch.bits(0, 0x20);
        EXPECT_EQ(stream.read(1, words), 0);
        EXPECT_THAT(simulator.takeFrames(), ElementsAre(batch.read(1, 1)));
    }
}

TEST(Commands, XapStateIsAnyNonzeroWord) {
    Simulator simulator;
    const Stream stream("0");
    const struct {
        const char* state;
        spifns_xap_state expected;
    } cases[] = {{"running", SPIFNS_XAP_RUNNING},
                 {"stopped", SPIFNS_XAP_STOPPED},
                 {"0x0100", SPIFNS_XAP_STOPPED},
                 {"0xffff", SPIFNS_XAP_STOPPED},
                 {"failing", SPIFNS_XAP_ERROR}};
    for (const auto& c : cases) {
        simulator.control(std::string("xap 0 ") + c.state);
        EXPECT_EQ(spifns_stream_marigold_xap_stopped(stream.id()), c.expected) << c.state;
    }
    EXPECT_EQ(lastFailure(), (Failure{517, 0, "xap_stopped failed on USB-SPI device"}));
}

}  // namespace
}  // namespace wrenlink::test
