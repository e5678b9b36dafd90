// What the message handler is told of the exchanges with an adapter.
#include <gtest/gtest.h>

#include "tests/exports/host.h"
#include "tests/support/recording_handler.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using Lines = std::vector<std::string>;

// The library's own debug lines since the last call.
Lines takeLines() {
    Lines lines;
    for (const Message& message : messages(MessageKind::output)) {
        if (message.isResult) continue;
        EXPECT_EQ(message.level, 3U);
        EXPECT_FALSE(message.flag);
        lines.push_back(message.function + "|" + message.text);
    }
    clearMessages();
    return lines;
}

TEST(AdapterTrace, IsMadeWhenItIsWanted) {
    Simulator simulator;
    for (const bool activated : {false, true}) {
        setDebugActivated(activated);
        clearMessages();
        const auto expected = [&](const std::string& line) {
            return activated ? Lines{line} : Lines{};
        };
        const Stream stream("0");
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
        EXPECT_EQ(takeLines(), expected("Quill_Stream_Command|Quill Fail - " + textOf(5) +
                                        ": Driver IO failed"));
    }
    setDebugActivated(false);
}

}  // namespace
}  // namespace wrenlink::test
