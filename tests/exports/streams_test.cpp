// Opening, naming and closing streams.
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <thread>

#include "tests/exports/host.h"
#include "tests/support/child_process.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

const Failure kInvalidStream = {262, 0, "Invalid stream"};

// Identifiers as a new process gets them; the one it is told to it closes at once.
int openStreams(const Arguments& arguments) {
    for (int i = 0; i < 34; ++i) {
        std::uint32_t id = 0;
        const int status = spifns_stream_init(&id);
        tellParent(status == 0 ? std::to_string(id) : lastFailure().text);
        if (status != 0)
            tellParent(std::to_string(id) + " " + std::to_string(spifns_count_streams()));
        if (std::to_string(id) == arguments.at(0)) spifns_stream_close(id);
    }
    return 0;
}
const ChildRole kOpenStreams("open-streams", openStreams);

TEST(Streams, GetIdentifiersInRisingOrder) {
    const Simulator simulator(AdapterIds{});
    const struct {
        const char* closing;
        std::vector<std::string> afterAll;
    } cases[] = {
        {"none", {"Too many streams", "2147483647 32"}},
        {"7", {"7", "7"}},  // comes back only when all others have been had
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.closing);
        ChildProcess child("open-streams", {c.closing});
        for (unsigned i = 1; i <= 32; ++i) EXPECT_EQ(child.readLine(), std::to_string(i % 32));
        for (const std::string& line : c.afterAll) EXPECT_EQ(child.readLine(), line);
    }
}

TEST(Streams, AreAtMostThirtyTwo) {
    const Simulator simulator(AdapterIds{});
    std::uint32_t id = Stream().id();
    for (int i = 0; i < 40; ++i) {
        const std::uint32_t next = Stream().id();
        EXPECT_EQ(next, (id + 1) % 32);  // even when no stream was open
        id = next;
    }
    std::deque<Stream> streams(32);
    EXPECT_EQ(outcome(spifns_stream_init(&id)), (Failure{261, 0, "Too many streams"}));
    EXPECT_EQ(id, SPIFNS_NO_STREAM);
    EXPECT_EQ(spifns_count_streams(), 32U);
    const std::uint32_t freed = streams.front().id();
    streams.pop_front();
    streams.emplace_back();
    EXPECT_EQ(streams.back().id(), freed);
    EXPECT_EQ(outcome(spifns_stream_init(nullptr)), kInvalidStream);
    streams.clear();
    EXPECT_EQ(spifns_count_streams(), 0U);
}

// What each export says of a stream that does not exist.
void expectMissing(std::uint32_t id, bool legacy) {
    Words word = {0xABCD};
    char text[8] = "before";
    SpiAction action = writeFrom(1, word);
    const auto pick = [&](auto ofStream, auto ofLegacy) {
        return legacy ? ofLegacy() : ofStream();
    };
    const struct {
        const char* what;
        std::function<bool()> asExpected;
    } calls[] = {
        {"sequence",
         [&] {
             return pick([&] { return spifns_stream_sequence(id, &action, 1); },
                         [&] { return spifns_sequence(&action, 1); }) == 1;
         }},
        {"mgcmd",
         [&] {
             return pick([&] { return spifns_stream_mgcmd_cmd(id, &word[0], 1, 1); },
                         [&] { return spifns_mgcmd_cmd(&word[0], 1, 1); }) == 1;
         }},
        {"mgcmd init",
         [&] {
             return pick([&] { return spifns_stream_mgcmd_init(id, 1, 2); },
                         [&] { return spifns_mgcmd_init(1, 2); }) == 1;
         }},
        {"xap",
         [&] {
             return pick([&] { return spifns_stream_marigold_xap_stopped(id); },
                         [&] { return spifns_marigold_xap_stopped(); }) == -1;
         }},
        {"command",
         [&] {
             return pick([&] { return spifns_stream_command(id, "DFU"); },
                         [&] { return spifns_command("DFU"); }) == nullptr;
         }},
        {"variable",
         [&] {
             return *pick([&] { return spifns_stream_getvar(id, "SPIMUL"); },
                          [&] { return spifns_getvar("SPIMUL"); }) == '\0';
         }},
        {"debug",
         [&] {
             pick(
                 [&] {
                     spifns_stream_set_debug_callback(id, nullptr, nullptr);
                     return 0;
                 },
                 [&] {
                     spifns_set_debug_callback(nullptr);
                     return 0;
                 });
             return true;
         }},
        {"id", [&] { return legacy || spifns_stream_get_device_id(id, text, 8) == 1; }},
    };
    for (const auto& call : calls) {
        if (legacy && std::string(call.what) == "id") continue;
        SCOPED_TRACE(call.what);
        spifns_clear_last_error();
        EXPECT_TRUE(call.asExpected());
        EXPECT_EQ(lastFailure(), kInvalidStream);
    }
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

    simulator.takeFrames();
    simulator.control("xap 0 stopped");
    Words word = {5};
    EXPECT_STREQ(spifns_getvar("spimul"), "2");
    EXPECT_EQ(spifns_mgcmd_init(1, 2), 0);
    EXPECT_EQ(spifns_mgcmd_cmd(word.data(), 1, 1), 0);
    EXPECT_EQ(spifns_marigold_xap_stopped(), SPIFNS_XAP_STOPPED);
    EXPECT_EQ(spifns_command("DFU"), nullptr);
    spifns_chip_select();
    EXPECT_EQ(simulator.takeFrames(),
              (Frames{hex("0700 0000 00 4000 0001 0002"), hex("0700 0600 00 4100 0001 0005"),
                      hex("0300 0400 00 0400"), hex("0300 0000 00 0600")}));

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

TEST(Streams, LiveUntilTheLastCallOnThemEnds) {
    Simulator simulator;
    std::uint32_t id = 0;
    ASSERT_EQ(spifns_stream_init(&id), 0);
    SpiAction select = setting("SPIPORT", "0");
    ASSERT_EQ(spifns_stream_sequence(id, &select, 1), 0);
    simulator.takeFrames();
    simulator.control("fault 0 delay 200");
    Words word(1);
    int status = -1;
    std::thread worker([&] {
        SpiAction read[] = {readInto(0, word), setting("SPIMUL", "1"), readInto(0, word)};
        status = spifns_stream_sequence(id, read, 3);
    });
    while (simulator.control("log 0").empty()) std::this_thread::yield();
    spifns_stream_close(id);
    EXPECT_EQ(spifns_count_streams(), 0U);
    expectMissing(id, false);
    worker.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(simulator.takeFrames().size(), 3U);
}

}  // namespace
}  // namespace wrenlink::test
