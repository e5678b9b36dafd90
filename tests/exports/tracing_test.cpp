// Which functions open a trace scope, what their exit lines show, and what else is traced.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "quill/adapter_layer.h"
#include "quill/adapter_list.h"
#include "quill/command_bits.h"
#include "quill/driver_exchange.h"
#include "quill/interface_mode.h"
#include "quill/last_error.h"
#include "quill/map_file.h"
#include "quill/quill_stream.h"
#include "quill/spi_clock.h"
#include "quill/stream_command.h"
#include "quill/stream_variables.h"
#include "tests/exports/host.h"
#include "tests/support/recording_handler.h"
#include "tests/support/simulator.h"
#include "wrenlink/batch.h"
#include "wrenlink/chip_command.h"
#include "wrenlink/entries.h"
#include "wrenlink/mgcmd.h"
#include "wrenlink/sequence.h"
#include "wrenlink/spifns.h"

namespace wrenlink {
namespace {

using test::Message;
using test::MessageKind;

// Exit lines, besides the text of a result.
constexpr char kPlain[] = "plain";
constexpr char kUntraced[] = "untraced";

struct Scope {
    const char* function;
    std::function<void()> call;
    std::string result;  // as the exit line shows it, or one of the above
};

// The one scope that the function opens in a call, or none.
void checkScope(const Scope& scope) {
    SCOPED_TRACE(scope.function);
    test::clearMessages();
    scope.call();
    std::vector<std::string> lines;
    std::set<std::pair<std::string, unsigned long>> places;
    for (const Message& message : test::messages()) {
        if (message.function != scope.function) continue;
        if (message.kind == MessageKind::entry)
            lines.emplace_back("->");
        else if (message.kind == MessageKind::exit)
            lines.emplace_back("<-");
        else if (message.isResult && message.level == 0 && !message.flag)
            lines.push_back(message.text);
        else
            continue;
        EXPECT_THAT(message.file, testing::HasSubstr("spi/wrenlink/"));
        EXPECT_GT(message.line, 0U);
        places.emplace(message.file, message.line);
    }
    EXPECT_LE(places.size(), 1U);
    std::vector<std::string> expected;
    if (scope.result == kPlain)
        expected = {"->", "<-"};
    else if (scope.result != kUntraced)
        expected = {"->",
                    std::string("<- ") + scope.function + " [returning " + scope.result + "]"};
    EXPECT_EQ(lines, expected);
}

// A scope that a call opens under the name of the function that is called.
#define CALL(function, arguments, result)              \
    {                                                  \
#function, [&] { function arguments; }, result \
    }

class Tracing : public testing::Test {
   protected:
    Tracing() {
        test::setDebugActivated(false);
        test::clearMessages();
    }

    // No adapters, and no map file.
    const test::TestRuntime runtime_;
    const test::SharedDocuments documents_;
};

TEST_F(Tracing, ExportsOpenTheirScopes) {
    const Scope exports[] = {
        CALL(spifns_mgcmd_cmd, (nullptr, 0, 0), "1"),
        CALL(spifns_mgcmd_init, (1, 2), "1"),
        CALL(spifns_marigold_xap_stopped, (), "-1"),
        CALL(spifns_chip_select, (), kPlain),
        CALL(spifns_clear_last_error, (), kPlain),
        CALL(spifns_close, (), kPlain),
        CALL(spifns_command, ("DFU"), "\"(null)\""),
        CALL(spifns_count_streams, (), "0"),
        CALL(spifns_enumerate_ports, (nullptr, nullptr), kPlain),
        CALL(spifns_get_last_error, (nullptr, nullptr), "262"),
        CALL(spifns_get_last_error32, (nullptr, nullptr), kPlain),
        CALL(spifns_get_version, (), kUntraced),
        CALL(spifns_getvar, ("SPIMUL"), "\"\""),
        CALL(spifns_getvarlist, (nullptr, nullptr), kPlain),
        CALL(spifns_init, (), "0"),
        CALL(spifns_sequence, (nullptr, 1), "1"),
        CALL(spifns_set_debug_callback, (nullptr), kUntraced),
        CALL(spifns_stream_mgcmd_cmd, (99, nullptr, 0, 0), "1"),
        CALL(spifns_stream_mgcmd_init, (99, 1, 2), "1"),
        CALL(spifns_stream_marigold_xap_stopped, (99), "-1"),
        CALL(spifns_stream_chip_select, (), kPlain),
        CALL(spifns_stream_close, (99), kPlain),
        CALL(spifns_stream_command, (99, ""), "\"(null)\""),
        CALL(spifns_stream_get_device_id, (99, nullptr, 0), "1"),
        CALL(spifns_stream_getvar, (99, "SPIMUL"), "\"\""),
        CALL(spifns_stream_init, (nullptr), "1"),
        CALL(spifns_stream_sequence, (99, nullptr, 0), "1"),
        CALL(spifns_stream_set_debug_callback, (99, nullptr, nullptr), kUntraced),
    };
    EXPECT_EQ(std::size(exports), 28U);
    spifns_stream_getvar(99, "SPIMUL");  // leaves 262
    for (const Scope& scope : exports) checkScope(scope);
    spifns_close();
}

TEST_F(Tracing, OperationsOpenTheirScopes) {
    std::uint8_t frame[1040] = {3, 0, 4, 0, 0, 8, 0};
    std::uint16_t word = 0;
    std::uint32_t size = 0;
    std::string path;
    SpiAction read{};
    read.u.memory.length = 1;
    read.u.memory.data = &word;
    CUsbStreamData stream;
    QuillStream* quill = stream.quill();
    quill->firmwareVersion = 0xC803;
    quill->spimulText[0] = '\0';
    const auto read1 = [&] { return std::span(&read, 1); };

    const Scope operations[] = {
        CALL(Quill_SetLastError, (0, 0, "none"), kPlain),
        CALL(Quill_AppendToLastError, ("more"), kPlain),
        CALL(Quill_GetLastError, (nullptr, nullptr), kPlain),
        CALL(Quill_ClearLastError, (), kPlain),
        CALL(Quill_Initialise, (), "true"),
        CALL(Quill_Finalise, (), kPlain),
        CALL(Quill_Enumerate, (), kPlain),
        CALL(Quill_EnumeratePorts, (nullptr, nullptr), kPlain),
        CALL(Open_Common_Document_File, ("quillmap.txt", path), kPlain),
        CALL(Quill_GetModuleId, ("absent"), kPlain),
        CALL(Quill_Command, (frame, frame, "absent"), "false"),
        CALL(Quill_Stream_Command, (quill, frame, frame), "false"),
        CALL(Quill_Stream_Command, (quill, frame, 0x0800, 3, 4), "false"),
        {"Quill_Stream_Initialise", [] { Quill_Stream_Finalise(Quill_Stream_Initialise()); },
         kPlain},
        CALL(Quill_Stream_Finalise, (Quill_Stream_Initialise()), kPlain),
        CALL(Quill_Stream_SelectDevice, (quill, "7"), "1"),
        CALL(Quill_Stream_GetDeviceId, (quill, nullptr, 0), kPlain),
        CALL(Quill_Stream_GetVersion, (quill), "0"),
        CALL(Quill_Stream_MajorVer, (quill), "200"),
        CALL(Quill_Stream_MinorVer, (quill), "3"),
        CALL(Quill_Stream_InvalidateCache, (quill), kPlain),
        CALL(Quill_Stream_SetDebugCallback, (quill, nullptr, nullptr), kPlain),
        CALL(Quill_Stream_Debug, (quill, "text"), kPlain),
        CALL(Quill_Stream_Debug_Full, (quill, "text"), kPlain),
        CALL(Quill_GetClockFromDelays, (1), kPlain),
        CALL(Quill_Stream_SetDelays, (quill, 1), kPlain),
        CALL(Quill_Stream_GetDelays, (quill, nullptr), kPlain),
        CALL(Quill_GetKnownVars, (nullptr, nullptr), kPlain),
        CALL(Quill_FindVar, ("SPIMUL"), kPlain),
        CALL(Quill_Stream_GetVar, (quill, "SPIMUL"), "\"0\""),
        CALL(Quill_Stream_SetVar, (quill, "SPIMUL", "17"), "1"),
        CALL(Quill_Stream_GetCmdBitsCache, (quill, &word, false), kPlain),
        {"Quill_Stream_Debug_Full", [&] { Quill_Stream_GetCmdBitsCache(quill, &word, false); },
         kPlain},
        CALL(Quill_Stream_SetCmdBitsCache, (quill, 0, false), kPlain),
        CALL(Quill_Stream_SetMode, (quill, "JTAG"), "1"),
        CALL(BuildRead, (nullptr, 0, 0, size, size), kPlain),
        CALL(BuildWrite, (nullptr, 0, 0, nullptr, size, size), kPlain),
        CALL(BuildSetVar, (nullptr, false, 0, size, size), kPlain),
        CALL(PrintStreamDebug, (stream, frame), kPlain),
        CALL(StreamSequence, (stream, read1()), "1"),
        CALL(DoStreamSequence, (stream, read1(), frame), kPlain),
        CALL(spi_sd_sequence, (stream, &read, 0), "0"),
        CALL(spi_sd_mgcmd_init, (stream, 0, 0), kPlain),
        CALL(spi_sd_mgcmd_cmd, (stream, &word, 1, 0), kPlain),
        CALL(spi_sd_marigold_xap_stopped, (stream), kPlain),
        CALL(spi_sd_command, (stream, "DFU"), kPlain),
        {"CUsbStreamData::hasFailedMapFileInitialisation",
         [&] { stream.hasFailedMapFileInitialisation(); }, "false"},
        {"CUsbStreamData::~CUsbStreamData", [] { const CUsbStreamData other; }, kPlain},
    };
    for (const Scope& scope : operations) checkScope(scope);
}

TEST_F(Tracing, AsksForTheInstanceBeforeEachHandler) {
    spifns_init();
    spifns_command("DFU");
    spifns_close();
    const std::vector<Message> messages = test::messages();
    std::vector<bool> constructorFlags;
    for (std::size_t i = 1; i < messages.size(); ++i) {
        if (messages[i].kind != MessageKind::getHandler) continue;
        EXPECT_EQ(messages[i].group, 101);
        EXPECT_EQ(messages[i - 1].kind, MessageKind::instance) << messages[i].function;
        if (messages[i].function == "CUsbStreamData::CUsbStreamData")
            constructorFlags.push_back(messages[i].flag);
        else
            EXPECT_FALSE(messages[i].flag) << messages[i].function;
    }
    EXPECT_EQ(constructorFlags, (std::vector{true, false}));
}

TEST_F(Tracing, TellsOfAMissingAdapterAndMarksAnExchangeIfItIsWanted) {
    std::uint8_t frame[16] = {3, 0, 0, 0, 0, 6, 0};
    CUsbStreamData stream;
    for (const bool activated : {false, true}) {
        test::setDebugActivated(activated);
        test::clearMessages();
        EXPECT_EQ(spi_sd_marigold_xap_stopped(stream), SPIFNS_XAP_ERROR);
        const auto errors = test::messages(MessageKind::error);
        ASSERT_EQ(errors.size(), 1U);
        EXPECT_EQ(errors[0].code, 0);
        EXPECT_EQ(errors[0].text, "No USB-SPI device found");
        const auto lines = test::messages(MessageKind::output);
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                [](const Message& line) {
                                    return line.text == "Quill - Quill XAP Stopped?Quill Fail";
                                }),
                  activated ? 1 : 0);

        test::clearMessages();
        EXPECT_FALSE(Quill_Command(frame, frame, "absent"));
        std::vector<unsigned long> levels;
        for (const Message& mark : test::messages(MessageKind::profile))
            levels.push_back(mark.level);
        EXPECT_EQ(levels, activated ? (std::vector{5UL, 0UL}) : std::vector<unsigned long>{});
    }
}

using Lines = std::vector<std::string>;

// The library's own debug lines since the last call.
Lines takeLines() {
    Lines lines;
    for (const Message& message : test::messages(MessageKind::output)) {
        if (message.isResult) continue;
        EXPECT_EQ(message.level, 3U);
        EXPECT_FALSE(message.flag);
        lines.push_back(message.function + "|" + message.text);
    }
    test::clearMessages();
    return lines;
}

// Of the exchanges with an adapter.
TEST(AdapterTrace, IsMadeWhenItIsWanted) {
    test::Simulator simulator;
    for (const bool activated : {false, true}) {
        test::setDebugActivated(activated);
        test::clearMessages();
        const auto expected = [&](const std::string& line) {
            return activated ? Lines{line} : Lines{};
        };
        const test::Stream stream("0");
        EXPECT_EQ(takeLines(), expected("Quill_Stream_GetVersion|Quill fw version: 264 (0x108)\n"));
        const struct {
            const char* state;
            const char* text;
        } states[] = {{"running", " = Running"},
                      {"stopped", " = Stopped"},
                      {"failing", " = failed on quill"}};
        for (const auto& state : states) {
            simulator.control(std::string("xap 0 ") + state.state);
            spifns_stream_marigold_xap_stopped(stream.id());
            EXPECT_EQ(
                takeLines(),
                expected(std::string("spi_sd_marigold_xap_stopped|Quill - Quill XAP Stopped?") +
                         state.text));
        }
        simulator.control("fault 0 refuse 5");
        stream.command("DFU");
        EXPECT_EQ(takeLines(), expected("Quill_Stream_Command|Quill Fail - " + test::textOf(5) +
                                        ": Driver IO failed"));
    }
    test::setDebugActivated(false);
}

}  // namespace
}  // namespace wrenlink
