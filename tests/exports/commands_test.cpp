// Single commands: their frames, results and the settings that gate them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "quill/adapter_layer.h"
#include "quill/adapter_list.h"
#include "quill/quill_stream.h"
#include "quill/stream_command.h"
#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

const std::string kGetDelay = "0300 0400 00 0500";
const std::string kGetVersion = "0300 0400 00 0800";

TEST(Commands, HaveTheirFrames) {
    Simulator simulator;
    const Stream stream("0");
    EXPECT_EQ(simulator.takeFrames(), frames("0300 0600 00 0700 | " + kGetVersion));
    const struct {
        const char* request;
        const char* answer;
        std::string frames;
    } steps[] = {
        {"?SPI_DELAY", "4", kGetDelay},
        {"?spiclock", "1066.098081", ""},
        {"SPI_DELAY=300", "0", "0500 0000 00 0300 012c"},
        {"spi_delay=0x12C", "0", ""},
        {"SPI_DELAY=70000", "0", "0500 0000 00 0300 1170"},
        // The nearest limit, which reads as unknown and then is not sent.
        {"SPI_DELAY=3000000000", "0", "0500 0000 00 0300 ffff"},
        {"?SPI_DELAY", "65535", kGetDelay},
        {"SPI_DELAY=-1", "0", ""},
        {"SPICLOCK=500", "0", "0500 0000 00 0300 000c"},
        {"SPICLOCK=1999", "0", "0500 0000 00 0300 0004"},
        {"SPICLOCK=2e3", "0", "0500 0000 00 0300 0000"},
        {"SPICLOCK=-5", "0", "0500 0000 00 0300 fffe"},
        {"SPIMAXCLOCK=900", "0", ""},
        {"SPICLOCK=1000", "0", "0500 0000 00 0300 0006"},
        // Selecting again keeps what is known.
        {"SPIPORT=100", "0", kGetVersion},
        {"SPI_DELAY=6", "0", ""},
        {"SPIMUL=16", "0", "0500 0000 00 0e00 0010"},
        {"SPIMUL=-1", "0", "0500 0000 00 0e00 0000"},
        {"QUILLMODE=jTag", "0", "0500 0000 00 0900 0001"},
        {"?SPI_DELAY", "6", kGetDelay},
        {"QUILLMODE=", "0", "0500 0000 00 0900 0000"},
        {"SPIFOO=1", "0", ""},
        {"!dfu", "", "0300 0000 00 0600"},
        {"!DFUX", "", ""},
        {"MGCMD start", "0", "0700 0000 00 4000 0001 0002"},
        {"MGCMD", "0", "0700 0600 00 4100 0001 0001"},
        {"XAP", "0", "0300 0400 00 0400"},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.request);
        EXPECT_EQ(stream.ask(step.request), step.answer);
        EXPECT_EQ(simulator.takeFrames(), frames(step.frames));
    }
    EXPECT_EQ(spifns_stream_command(stream.id(), nullptr), nullptr);
    spifns_stream_chip_select();
    EXPECT_EQ(spifns_stream_mgcmd_cmd(stream.id(), nullptr, 0, 1), 0);
    EXPECT_EQ(simulator.takeFrames(), frames("0500 0400 00 4100 0000"));
    EXPECT_EQ(lastFailure(), Failure());
}

TEST(Commands, ClearTheReservedByteOfAnyFrame) {
    Simulator simulator;
    QuillStream* const stream = Quill_Stream_Initialise();
    EXPECT_EQ(Quill_Stream_SelectDevice(stream, "0"), 0);
    simulator.takeFrames();
    std::uint8_t request[] = {3, 0, 4, 0, 0xEE, 8, 0};
    std::uint8_t reply[10] = {};
    EXPECT_TRUE(Quill_Stream_Command(stream, request, reply));
    EXPECT_THAT(reply, ElementsAre(0, 0, 0, 0, 0, 8, 0, 1, 8, 0));
    EXPECT_EQ(simulator.takeFrames(), frames(kGetVersion));
    Quill_Stream_Finalise(stream);
    Quill_Initialise();
    Quill_Stream_Finalise(nullptr);  // ends one use of the adapter layer all the same
    EXPECT_FALSE(adapterListExists());
}

TEST(Commands, SlowerLengthensTheDelayByAQuarterAndOne) {
    Simulator simulator;
    const Stream stream("0");
    DebugTexts texts(stream);
    const std::string tooSlow = "WARNING: instructed to set Quill clock too slow. ";
    const struct {
        const char* before;
        std::vector<std::string> texts;
        const char* after;
    } cases[] = {
        {"0", {"Quill Set Delays 1"}, "1"},
        {"4", {"Quill Set Delays 6"}, "6"},
        {"100", {"Quill Set Delays 126"}, "126"},
        {"413", {tooSlow + "honouring.", "Quill Set Delays 517"}, "517"},
        {"414", {tooSlow + "ignoring."}, "414"},
        {"600", {tooSlow + "ignoring."}, "600"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(stream.set("SPI_DELAY", c.before), 0);
        texts.take();
        EXPECT_EQ(stream.ask("!sPiSlower"), "");
        EXPECT_EQ(texts.take(), c.texts);
        EXPECT_EQ(stream.get("SPI_DELAY"), c.after);
    }
    // A delay that cannot be had counts as 0.
    stream.set("QUILLMODE", "SPI");
    simulator.control("fault 0 refuse 5 code=0x0500");
    simulator.takeFrames();
    EXPECT_EQ(stream.ask("!SPISLOWER"), "");
    EXPECT_EQ(simulator.takeFrames(), frames(kGetDelay + " | 0500 0000 00 0300 0001"));
}

TEST(Commands, MgcmdExchangesItsWords) {
    Simulator simulator;
    const Stream stream("0");
    ASSERT_EQ(spifns_stream_mgcmd_init(stream.id(), 0x00FF, 1), 0);
    simulator.takeFrames();
    DebugTexts texts(stream);
    const auto exchange = [&](Words& words, std::uint32_t flag) {
        return outcome(spifns_stream_mgcmd_cmd(stream.id(), words.data(),
                                               static_cast<std::uint16_t>(words.size()), flag));
    };
    Words words = {0x0102, 0xFF00};
    EXPECT_EQ(exchange(words, 1), Failure());
    EXPECT_EQ(words, (Words{0x01FE, 0x0000}));
    EXPECT_EQ(simulator.takeFrames(), frames("0900 0800 00 4100 0002 0102 ff00"));

    Words most = countingWords(508);
    Words answers = most;
    for (std::uint16_t& word : answers) word = static_cast<std::uint16_t>((word ^ 0x00FF) + 1);
    EXPECT_EQ(exchange(most, 1), Failure());
    EXPECT_EQ(most, answers);
    EXPECT_THAT(simulator.takeFrames(), ElementsAre(StartsWith("fd03fc0300410001fc")));
    Words tooMany(509);
    EXPECT_EQ(exchange(tooMany, 0), (Failure{1, 0, "MGCMD too long"}));
    EXPECT_EQ(texts.take(), std::vector<std::string>{"Too long\n"});
    EXPECT_EQ(outcome(spifns_stream_mgcmd_cmd(stream.id(), nullptr, 1, 0)),
              (Failure{1, 0, "Invalid variable or value"}));
    EXPECT_EQ(simulator.takeFrames(), Frames());

    // The adapter's own failure report counts only with a flag.
    simulator.control("fault 0 badstatus 0x4101 2");
    words = {7, 8};
    EXPECT_EQ(exchange(words, 0x80000000), (Failure{517, 0, "MGCMD failed on USB-SPI device"}));
    EXPECT_EQ(texts.take(), std::vector<std::string>{"MGCMD failed on quill"});
    EXPECT_EQ(words, (Words{7, 8}));
    spifns_clear_last_error();
    EXPECT_EQ(exchange(words, 0), Failure());
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

        const auto expectGated = [&](const char* request, bool permitted, const char* text) {
            spifns_clear_last_error();
            EXPECT_EQ(stream.ask(request), permitted ? "0" : "1") << request;
            EXPECT_EQ(lastFailure(), permitted ? Failure() : (Failure{520, 0, text}));
        };
        expectGated("MGCMD start", c.mgcmd,
                    "Unable to initialise MGCMDs, USB-SPI firmware too old");
        expectGated("MGCMD", c.mgcmd, "Unable to send MGCMD, USB-SPI firmware too old");
        EXPECT_EQ(simulator.takeFrames().size(), c.mgcmd ? 2U : 0U);
        for (const char* request : {"SPICMDBITS=32", "SPICMDREADBITS=32", "spicmdwritebits=0x20"})
            expectGated(request, c.cmdBits, "Unable to set command bits, USB-SPI firmware too old");
        EXPECT_EQ(stream.get("SPICMDBITS"), c.cmdBits ? "0x20" : "0x0");
        EXPECT_EQ(stream.run("r1:1"), 0);
        EXPECT_EQ(simulator.takeFrames(), frames(c.cmdBitsSent ? "R=20 r1:1" : "r1:1"));
    }
}

}  // namespace
}  // namespace wrenlink::test
