// Which functions open a trace scope, what their exit lines show, and what else is traced.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

#include "tests/exports/host.h"
#include "tests/support/recording_handler.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using Lines = std::vector<std::string>;

void useStream(std::uint32_t id) {
    std::uint16_t word = 0;
    spifns_stream_sequence(id, nullptr, 0);
    spifns_stream_mgcmd_init(id, 1, 2);
    spifns_stream_mgcmd_cmd(id, &word, 1, 0);
    spifns_stream_marigold_xap_stopped(id);
    spifns_stream_command(id, "SPISLOWER");
    spifns_stream_getvar(id, "SPIMUL");
    spifns_stream_get_device_id(id, nullptr, 0);
    spifns_stream_set_debug_callback(id, nullptr, nullptr);
}

void useLegacyStream() {
    std::uint16_t word = 0;
    spifns_sequence(nullptr, 0);
    spifns_mgcmd_init(1, 2);
    spifns_mgcmd_cmd(&word, 1, 0);
    spifns_marigold_xap_stopped();
    spifns_command("DFU");
    spifns_getvar("SPIMUL");
    spifns_set_debug_callback(nullptr);
    spifns_close();
}

// Calls every export, and through them every operation, also in vain.
void callEverything() {
    Simulator simulator({100}, "200.3");
    takeMessages();
    {
        const Stream stream("0");
        for (const char* steps :
             {"SPICMDBITS=1 r1:1 w1:1 QUILLMODE=SPI SPICLOCK=1000", "SPIMUL=17"})
            stream.run(steps);
        useStream(stream.id());
        simulator.control("fault 0 refuse 5");
        stream.run("r1:1");
        const Stream idle;
        for (const char* steps : {"r1:1", "QUILLMODE=SPI", "SPIPORT=7"}) idle.run(steps);
        useStream(SPIFNS_NO_STREAM);
        spifns_stream_init(nullptr);
        spifns_init();
        useLegacyStream();
        useLegacyStream();
    }
    spifns_chip_select();
    spifns_stream_chip_select();
    spifns_count_streams();
    spifns_enumerate_ports(nullptr, nullptr);
    spifns_getvarlist(nullptr, nullptr);
    spifns_get_last_error(nullptr, nullptr);
    spifns_get_last_error32(nullptr, nullptr);
    spifns_clear_last_error();
    spifns_get_version();
}

// The scopes that messages tell of, each once for its place in the code: the function's name, and
// behind "=" what the exit line shows of the result.
std::string scopes() {
    const std::regex opened(R"(-> (\S+) .*)");
    const std::regex closed(
        R"(<- (\S+) (\S*spi/wrenlink/\S+:\d+)(?: 0 0 <- (\S+) \[returning (.*)\])?)");
    std::set<std::pair<std::string, std::string>> places;
    Lines open;
    for (const std::string& message : takeMessages()) {
        std::smatch part;
        if (std::regex_match(message, part, opened)) {
            EXPECT_THAT(open, testing::Not(testing::Contains(part[1])));
            open.push_back(part[1]);
        } else if (std::regex_match(message, part, closed)) {
            EXPECT_EQ(open.back(), part[1]);
            open.pop_back();
            EXPECT_THAT(part[3].str(), testing::AnyOf("", part[1].str()));
            places.emplace(part[3].matched ? part[1].str() + "=" + part[4].str() : part[1].str(),
                           part[2]);
        } else {
            EXPECT_FALSE(message.starts_with("<-")) << message;
        }
    }
    EXPECT_EQ(open, Lines());
    std::string lines;
    for (const auto& [scope, place] : places) lines += scope + "\n";
    return lines;
}

// All of them, sorted.
constexpr char kScopes[] =
    "BuildRead BuildSetVar BuildWrite CUsbStreamData::CUsbStreamData "
    "CUsbStreamData::hasFailedMapFileInitialisation=false CUsbStreamData::~CUsbStreamData "
    "DoStreamSequence Open_Common_Document_File PrintStreamDebug Quill_AppendToLastError "
    "Quill_ClearLastError Quill_Command=false Quill_Command=true Quill_Enumerate "
    "Quill_EnumeratePorts Quill_Finalise Quill_FindVar Quill_GetClockFromDelays "
    "Quill_GetKnownVars Quill_GetLastError Quill_GetModuleId Quill_Initialise=true "
    "Quill_SetLastError Quill_Stream_Command=false Quill_Stream_Command=false "
    "Quill_Stream_Command=true Quill_Stream_Command=true Quill_Stream_Debug "
    "Quill_Stream_Debug_Full Quill_Stream_Finalise Quill_Stream_GetCmdBitsCache "
    "Quill_Stream_GetDelays Quill_Stream_GetDeviceId Quill_Stream_GetVar=\"0\" "
    "Quill_Stream_GetVar=\"1070\" Quill_Stream_GetVersion=51203 Quill_Stream_Initialise "
    "Quill_Stream_InvalidateCache Quill_Stream_MajorVer=0 Quill_Stream_MajorVer=200 "
    "Quill_Stream_MinorVer=0 Quill_Stream_MinorVer=3 Quill_Stream_SelectDevice=0 "
    "Quill_Stream_SelectDevice=1 Quill_Stream_SetCmdBitsCache Quill_Stream_SetDebugCallback "
    "Quill_Stream_SetDelays Quill_Stream_SetMode=0 Quill_Stream_SetMode=1 Quill_Stream_SetVar=0 "
    "Quill_Stream_SetVar=1 StreamSequence=0 StreamSequence=1 spi_sd_command "
    "spi_sd_marigold_xap_stopped spi_sd_mgcmd_cmd spi_sd_mgcmd_init spi_sd_sequence=0 "
    "spi_sd_sequence=1 spifns_chip_select spifns_clear_last_error spifns_close "
    "spifns_command=\"(null)\" spifns_count_streams=0 spifns_enumerate_ports "
    "spifns_get_last_error32 spifns_get_last_error=0 spifns_getvar=\"\" spifns_getvar=\"0\" "
    "spifns_getvarlist spifns_init=0 spifns_marigold_xap_stopped=-1 spifns_mgcmd_cmd=1 "
    "spifns_mgcmd_init=1 spifns_sequence=0 spifns_sequence=1 spifns_stream_chip_select "
    "spifns_stream_close spifns_stream_command=\"(null)\" spifns_stream_get_device_id=1 "
    "spifns_stream_getvar=\"\" spifns_stream_getvar=\"0\" spifns_stream_init=0 "
    "spifns_stream_init=1 spifns_stream_marigold_xap_stopped=-1 "
    "spifns_stream_marigold_xap_stopped=0 spifns_stream_mgcmd_cmd=0 spifns_stream_mgcmd_cmd=1 "
    "spifns_stream_mgcmd_init=0 spifns_stream_mgcmd_init=1 spifns_stream_sequence=0 "
    "spifns_stream_sequence=1 ";

TEST(Tracing, FunctionsOpenTheirScopes) {
    callEverything();
    std::string expected = kScopes;
    std::replace(expected.begin(), expected.end(), ' ', '\n');
    EXPECT_EQ(scopes(), expected);
}

TEST(Tracing, AsksForTheInstanceBeforeEachHandler) {
    callEverything();
    const Lines all = takeMessages();
    Lines flagged;
    for (std::size_t i = 1; i < all.size(); ++i) {
        if (!all[i].starts_with("handler ")) continue;
        EXPECT_EQ(all[i - 1], "instance") << all[i];
        EXPECT_THAT(all[i], testing::StartsWith("handler 101 "));
        if (all[i].starts_with("handler 101 1 ")) flagged.push_back(all[i].substr(14));
    }
    // Once for each stream.
    EXPECT_EQ(flagged, Lines(3, "CUsbStreamData::CUsbStreamData"));
}

// What was traced beside scopes since the last call.
Lines takeLines() {
    Lines lines = takeMessages();
    std::erase_if(lines, [](const std::string& line) {
        return line == "instance" || line.starts_with("handler ") || line.starts_with("->") ||
               line.starts_with("<-");
    });
    return lines;
}

TEST(Tracing, TellsOfExchangesWhenItIsWanted) {
    Simulator simulator;
    const struct {
        const char* state;
        spifns_xap_state told;
        const char* text;
    } states[] = {{"running", SPIFNS_XAP_RUNNING, " = Running"},
                  {"stopped", SPIFNS_XAP_STOPPED, " = Stopped"},
                  {"0x0100", SPIFNS_XAP_STOPPED, " = Stopped"},
                  {"failing", SPIFNS_XAP_ERROR, " = failed on quill"}};
    const std::string xap = "3 0 spi_sd_marigold_xap_stopped|Quill - Quill XAP Stopped?";
    for (const bool wanted : {false, true}) {
        setDebugActivated(wanted);
        const auto expectExchange = [&](const std::string& line) {
            EXPECT_EQ(takeLines(), wanted ? (Lines{"mark 5", "mark 0", line}) : Lines());
        };
        const Stream stream;
        takeLines();
        // That there is no adapter is always told.
        EXPECT_EQ(spifns_stream_marigold_xap_stopped(stream.id()), SPIFNS_XAP_ERROR);
        Lines lines = {"error 0: No USB-SPI device found"};
        if (wanted) lines.push_back(xap + "Quill Fail");
        EXPECT_EQ(takeLines(), lines);

        EXPECT_EQ(stream.set("SPIPORT", "0"), 0);
        expectExchange("3 0 Quill_Stream_GetVersion|Quill fw version: 264 (0x108)\n");
        for (const auto& c : states) {
            simulator.control(std::string("xap 0 ") + c.state);
            EXPECT_EQ(spifns_stream_marigold_xap_stopped(stream.id()), c.told);
            expectExchange(xap + c.text);
        }
        EXPECT_EQ(lastFailure(), (Failure{517, 0, "xap_stopped failed on USB-SPI device"}));
        simulator.control("fault 0 refuse 5");
        stream.ask("!DFU");
        expectExchange("3 0 Quill_Stream_Command|Quill Fail - " + textOf(5) + ": Driver IO failed");
    }
    setDebugActivated(false);
}

}  // namespace
}  // namespace wrenlink::test
