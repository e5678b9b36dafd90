// Opening, naming and closing streams.
#include <gtest/gtest.h>

#include <deque>

#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

const Failure kInvalidStream = {262, 0, "Invalid stream"};

TEST(Streams, GetTheIdentifierThatWasFreeForLongest) {
    const Simulator simulator(AdapterIds{});
    std::uint32_t id = Stream().id();
    for (int i = 0; i < 40; ++i) {
        const Stream next;
        id = (id + 1) % 32;  // even when no stream was open
        EXPECT_EQ(next.id(), id);
    }
    std::deque<Stream> streams(10);
    const std::uint32_t freed = streams.front().id();
    streams.pop_front();
    while (streams.size() < 31) EXPECT_NE(streams.emplace_back().id(), freed);
    EXPECT_EQ(streams.emplace_back().id(), freed);
    EXPECT_EQ(outcome(spifns_stream_init(&id)), (Failure{261, 0, "Too many streams"}));
    EXPECT_EQ(id, SPIFNS_NO_STREAM);
    EXPECT_EQ(spifns_count_streams(), 32U);
    EXPECT_EQ(outcome(spifns_stream_init(nullptr)), kInvalidStream);
    streams.clear();
    EXPECT_EQ(spifns_count_streams(), 0U);
}

// What each export says of a stream that does not exist.
void expectMissing(std::uint32_t id, bool legacy) {
    const auto expect = [&](auto result, auto ofStream, auto ofLegacy, auto... arguments) {
        spifns_clear_last_error();
        EXPECT_EQ(legacy ? ofLegacy(arguments...) : ofStream(id, arguments...), result);
        EXPECT_EQ(lastFailure(), kInvalidStream);
    };
    Words word = {0xABCD};
    SpiAction action = writeFrom(1, word);
    constexpr std::uint16_t kOne = 1;
    expect(1, spifns_stream_sequence, spifns_sequence, &action, 1U);
    expect(1, spifns_stream_mgcmd_cmd, spifns_mgcmd_cmd, word.data(), kOne, 1U);
    expect(1, spifns_stream_mgcmd_init, spifns_mgcmd_init, kOne, kOne);
    expect(SPIFNS_XAP_ERROR, spifns_stream_marigold_xap_stopped, spifns_marigold_xap_stopped);
    expect(nullptr, spifns_stream_command, spifns_command, "DFU");
    expect(std::string(), spifns_stream_getvar, spifns_getvar, "SPIMUL");
    spifns_clear_last_error();
    legacy ? spifns_set_debug_callback(nullptr)
           : spifns_stream_set_debug_callback(id, nullptr, nullptr);
    EXPECT_EQ(lastFailure(), kInvalidStream);
    if (legacy) return;
    spifns_clear_last_error();
    char text[8] = "before";
    EXPECT_EQ(outcome(spifns_stream_get_device_id(id, text, sizeof text)), kInvalidStream);
    EXPECT_STREQ(text, "before");
}

TEST(Streams, ThatAreMissingAreReported) {
    const Simulator simulator(AdapterIds{});
    const Stream open;
    std::uint32_t closed = 0;
    ASSERT_EQ(spifns_stream_init(&closed), 0);
    spifns_stream_close(closed);
    for (const std::uint32_t id : {closed, 32U, SPIFNS_NO_STREAM, 0xFFFFFFFFU}) {
        SCOPED_TRACE(id);
        expectMissing(id, false);
        spifns_stream_close(id);
        EXPECT_EQ(lastFailure(), Failure());
        EXPECT_EQ(spifns_count_streams(), 1U);
    }
    expectMissing(0, true);
    spifns_close();
    EXPECT_EQ(lastFailure(), kInvalidStream);
}

TEST(Streams, OneIsTheLegacyStream) {
    Simulator simulator;
    ASSERT_EQ(spifns_init(), 0);
    EXPECT_EQ(outcome(spifns_init()), (Failure{263, 0, "Legacy stream already assigned"}));
    EXPECT_EQ(spifns_count_streams(), 2U);

    static std::vector<std::string> texts;
    static void* location = nullptr;
    // The second argument is one that a host's function need not have.
    constexpr spifns_debug_callback kCollect = [](const char* text, void* at) {
        texts.emplace_back(text);
        location = at;
    };
    auto callback =
        reinterpret_cast<spifns_legacy_debug_callback>(reinterpret_cast<void (*)()>(kCollect));
    spifns_set_debug_callback(&callback);
    SpiAction select[] = {setting("SPIPORT", "0"), setting("SPIMUL", "2")};
    EXPECT_EQ(spifns_sequence(select, 2), 0);
    EXPECT_EQ(texts, std::vector<std::string>{"Quill mul dev 2"});
    EXPECT_EQ(location, &callback);
    callback = nullptr;
    EXPECT_EQ(spifns_sequence(select, 2), 0);
    spifns_set_debug_callback(nullptr);
    EXPECT_EQ(spifns_sequence(select, 2), 0);
    EXPECT_EQ(texts.size(), 1U);

    // Closing it, by either name, makes room for another one.
    EXPECT_EQ(lastFailure().code, 263);
    spifns_close();
    EXPECT_EQ(lastFailure(), Failure());
    EXPECT_EQ(spifns_count_streams(), 1U);
    EXPECT_EQ(spifns_init(), 0);
    for (std::uint32_t id = 0; id < 32; ++id) spifns_stream_close(id);
    EXPECT_EQ(spifns_count_streams(), 0U);
    expectMissing(0, true);
    EXPECT_EQ(spifns_init(), 0);
    spifns_close();
}

}  // namespace
}  // namespace wrenlink::test
