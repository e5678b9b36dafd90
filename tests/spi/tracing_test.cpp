// Which functions open a trace scope, and what their exit lines show.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <string>
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
#include "tests/support/machine.h"
#include "tests/support/recording_handler.h"
#include "tests/support/test_runtime.h"
#include "wrenlink/batch.h"
#include "wrenlink/chip_command.h"
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
    for (const Message& message : test::messages()) {
        if (message.function != scope.function) continue;
        if (message.kind == MessageKind::entry) lines.push_back("->");
        if (message.kind == MessageKind::exit) lines.push_back("<-");
        if (message.kind == MessageKind::output && message.isResult) lines.push_back(message.text);
    }
    std::vector<std::string> expected;
    if (scope.result == kPlain)
        expected = {"->", "<-"};
    else if (scope.result != kUntraced)
        expected = {"->",
                    std::string("<- ") + scope.function + " [returning " + scope.result + "]"};
    EXPECT_EQ(lines, expected);
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
        {"spifns_mgcmd_cmd", [] { spifns_mgcmd_cmd(nullptr, 0, 0); }, "1"},
        {"spifns_mgcmd_init", [] { spifns_mgcmd_init(1, 2); }, "1"},
        {"spifns_marigold_xap_stopped", [] { spifns_marigold_xap_stopped(); }, "-1"},
        {"spifns_chip_select", [] { spifns_chip_select(); }, kPlain},
        {"spifns_clear_last_error", [] { spifns_clear_last_error(); }, kPlain},
        {"spifns_close", [] { spifns_close(); }, kPlain},
        {"spifns_command", [] { spifns_command("DFU"); }, "\"(null)\""},
        {"spifns_count_streams", [] { spifns_count_streams(); }, "0"},
        {"spifns_enumerate_ports", [] { spifns_enumerate_ports(nullptr, nullptr); }, kPlain},
        {"spifns_get_last_error", [] { spifns_get_last_error(nullptr, nullptr); }, "262"},
        {"spifns_get_last_error32", [] { spifns_get_last_error32(nullptr, nullptr); }, kPlain},
        {"spifns_get_version", [] { spifns_get_version(); }, kUntraced},
        {"spifns_getvar", [] { spifns_getvar("SPIMUL"); }, "\"\""},
        {"spifns_getvarlist", [] { spifns_getvarlist(nullptr, nullptr); }, kPlain},
        {"spifns_init", [] { spifns_init(); }, "0"},
        {"spifns_sequence", [] { spifns_sequence(nullptr, 1); }, "1"},
        {"spifns_set_debug_callback", [] { spifns_set_debug_callback(nullptr); }, kUntraced},
        {"spifns_stream_mgcmd_cmd", [] { spifns_stream_mgcmd_cmd(99, nullptr, 0, 0); }, "1"},
        {"spifns_stream_mgcmd_init", [] { spifns_stream_mgcmd_init(99, 1, 2); }, "1"},
        {"spifns_stream_marigold_xap_stopped", [] { spifns_stream_marigold_xap_stopped(99); },
         "-1"},
        {"spifns_stream_chip_select", [] { spifns_stream_chip_select(); }, kPlain},
        {"spifns_stream_close", [] { spifns_stream_close(99); }, kPlain},
        {"spifns_stream_command", [] { spifns_stream_command(99, ""); }, "\"(null)\""},
        {"spifns_stream_get_device_id", [] { spifns_stream_get_device_id(99, nullptr, 0); }, "1"},
        {"spifns_stream_getvar", [] { spifns_stream_getvar(99, "SPIMUL"); }, "\"\""},
        {"spifns_stream_init", [] { spifns_stream_init(nullptr); }, "1"},
        {"spifns_stream_sequence", [] { spifns_stream_sequence(99, nullptr, 0); }, "1"},
        {"spifns_stream_set_debug_callback",
         [] { spifns_stream_set_debug_callback(99, nullptr, nullptr); }, kUntraced},
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
        {"Quill_SetLastError", [] { Quill_SetLastError(0, 0, "none"); }, kPlain},
        {"Quill_AppendToLastError", [] { Quill_AppendToLastError("more"); }, kPlain},
        {"Quill_GetLastError", [] { Quill_GetLastError(nullptr, nullptr); }, kPlain},
        {"Quill_ClearLastError", [] { Quill_ClearLastError(); }, kPlain},
        {"Quill_Initialise", [] { Quill_Initialise(); }, "true"},
        {"Quill_Finalise", [] { Quill_Finalise(); }, kPlain},
        {"Quill_Enumerate", [] { Quill_Enumerate(); }, kPlain},
        {"Quill_EnumeratePorts", [] { Quill_EnumeratePorts(nullptr, nullptr); }, kPlain},
        {"Open_Common_Document_File", [&] { Open_Common_Document_File("quillmap.txt", path); },
         kPlain},
        {"Quill_GetModuleId", [] { Quill_GetModuleId("absent"); }, kPlain},
        {"Quill_Command", [&] { Quill_Command(frame, frame, "absent"); }, "false"},
        {"Quill_Stream_Command", [&] { Quill_Stream_Command(quill, frame, frame); }, "false"},
        {"Quill_Stream_Command", [&] { Quill_Stream_Command(quill, frame, 0x0800, 3, 4); },
         "false"},
        {"Quill_Stream_Initialise", [] { Quill_Stream_Finalise(Quill_Stream_Initialise()); },
         kPlain},
        {"Quill_Stream_Finalise", [] { Quill_Stream_Finalise(Quill_Stream_Initialise()); }, kPlain},
        {"Quill_Stream_SelectDevice", [&] { Quill_Stream_SelectDevice(quill, "7"); }, "1"},
        {"Quill_Stream_GetDeviceId", [&] { Quill_Stream_GetDeviceId(quill, nullptr, 0); }, kPlain},
        {"Quill_Stream_GetVersion", [&] { Quill_Stream_GetVersion(quill); }, "0"},
        {"Quill_Stream_MajorVer", [&] { Quill_Stream_MajorVer(quill); }, "200"},
        {"Quill_Stream_MinorVer", [&] { Quill_Stream_MinorVer(quill); }, "3"},
        {"Quill_Stream_InvalidateCache", [&] { Quill_Stream_InvalidateCache(quill); }, kPlain},
        {"Quill_Stream_SetDebugCallback",
         [&] { Quill_Stream_SetDebugCallback(quill, nullptr, nullptr); }, kPlain},
        {"Quill_Stream_Debug", [&] { Quill_Stream_Debug(quill, "text"); }, kPlain},
        {"Quill_Stream_Debug_Full", [&] { Quill_Stream_Debug_Full(quill, "text"); }, kPlain},
        {"Quill_GetClockFromDelays", [] { Quill_GetClockFromDelays(1); }, kPlain},
        {"Quill_Stream_SetDelays", [&] { Quill_Stream_SetDelays(quill, 1); }, kPlain},
        {"Quill_Stream_GetDelays", [&] { Quill_Stream_GetDelays(quill, nullptr); }, kPlain},
        {"Quill_GetKnownVars", [] { Quill_GetKnownVars(nullptr, nullptr); }, kPlain},
        {"Quill_FindVar", [] { Quill_FindVar("SPIMUL"); }, kPlain},
        {"Quill_Stream_GetVar", [&] { Quill_Stream_GetVar(quill, "SPIMUL"); }, "\"0\""},
        {"Quill_Stream_SetVar", [&] { Quill_Stream_SetVar(quill, "SPIMUL", "17"); }, "1"},
        {"Quill_Stream_GetCmdBitsCache", [&] { Quill_Stream_GetCmdBitsCache(quill, &word, false); },
         kPlain},
        {"Quill_Stream_SetCmdBitsCache", [&] { Quill_Stream_SetCmdBitsCache(quill, 0, false); },
         kPlain},
        {"Quill_Stream_SetMode", [&] { Quill_Stream_SetMode(quill, "JTAG"); }, "1"},
        {"BuildRead", [&] { BuildRead(nullptr, 0, 0, size, size); }, kPlain},
        {"BuildWrite", [&] { BuildWrite(nullptr, 0, 0, nullptr, size, size); }, kPlain},
        {"BuildSetVar", [&] { BuildSetVar(nullptr, false, 0, size, size); }, kPlain},
        {"PrintStreamDebug", [&] { PrintStreamDebug(stream, frame); }, kPlain},
        {"StreamSequence", [&] { StreamSequence(stream, read1()); }, "1"},
        {"DoStreamSequence", [&] { DoStreamSequence(stream, read1(), frame); }, kPlain},
        {"spi_sd_sequence", [&] { spi_sd_sequence(stream, &read, 0); }, "0"},
        {"spi_sd_mgcmd_init", [&] { spi_sd_mgcmd_init(stream, 0, 0); }, kPlain},
        {"spi_sd_mgcmd_cmd", [&] { spi_sd_mgcmd_cmd(stream, &word, 1, 0); }, kPlain},
        {"spi_sd_marigold_xap_stopped", [&] { spi_sd_marigold_xap_stopped(stream); }, kPlain},
        {"spi_sd_command", [&] { spi_sd_command(stream, "DFU"); }, kPlain},
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

}  // namespace
}  // namespace wrenlink
