// Several processes at one adapter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/exports/host.h"
#include "tests/support/child_process.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

// Gives the adapter a delay and command bits, and stays until the parent says go.
int configure(const Arguments&) {
    const Stream stream("0");
    Words word(1);
    tellParent(std::to_string(stream.run({setting("SPI_DELAY", "9"), setting("SPICMDBITS", "3"),
                                          readInto(0, word), writeFrom(0, word)})));
    awaitParent();
    return 0;
}
const ChildRole kConfigure("configure", configure);

// Exchanges so many times.
int exchange(const Arguments& arguments) {
    const Stream stream("0");
    Words word(1);
    tellParent("open");
    awaitParent();
    int failed = 0;
    for (int i = std::stoi(arguments.at(0)); i > 0; --i) failed += stream.read(0, word);
    tellParent(std::to_string(failed));
    return 0;
}
const ChildRole kExchange("exchange", exchange);

TEST(Processes, ShareWhatTheAdapterHas) {
    Simulator simulator({100}, "1.9");
    {
        ChildProcess child("configure");
        ASSERT_EQ(child.readLine(), "0");
        const Stream stream("0");
        simulator.takeFrames();
        Words word(1);
        EXPECT_EQ(stream.get("SPI_DELAY"), "9");
        EXPECT_EQ(stream.run({setting("SPI_DELAY", "9"), setting("SPICMDBITS", "3"),
                              readInto(0, word), writeFrom(0, word)}),
                  0);
        EXPECT_EQ(simulator.takeFrames(), Frames{Batch().read(0, 1).write(0, word)});
        // What one forgets is forgotten by all, and what one learns is known to all.
        child.kill();
        EXPECT_EQ(stream.get("SPI_DELAY"), "9");
        EXPECT_EQ(simulator.takeFrames(), Frames());
    }
    // With the last holder, killed or not, it is gone.
    const Stream stream("0");
    simulator.takeFrames();
    EXPECT_EQ(stream.get("SPI_DELAY"), "9");
    EXPECT_EQ(simulator.takeFrames(), Frames{hex("0300 0400 00 0500")});
}

TEST(Processes, TakeTurnsAtTheAdapter) {
    Simulator simulator;
    simulator.control("set 0 answer-us 200");
    ChildProcess first("exchange", {"100"});
    ChildProcess second("exchange", {"100"});
    EXPECT_EQ(first.readLine() + second.readLine(), "openopen");
    first.go();
    second.go();
    EXPECT_EQ(first.readLine() + second.readLine(), "00");
    EXPECT_THAT(simulator.control("count 0"), testing::HasSubstr("peak=1\n"));
}

TEST(Processes, GiveTheirTurnBackWhenKilled) {
    Simulator simulator;
    const Stream stream("0");
    ChildProcess child("exchange", {"1"});
    ASSERT_EQ(child.readLine(), "open");
    simulator.takeFrames();
    simulator.control("fault 0 silence");
    child.go();
    while (simulator.control("log 0").empty()) std::this_thread::yield();
    child.kill();
    Words word(1);
    EXPECT_EQ(stream.read(0, word), 0);
}

}  // namespace
}  // namespace wrenlink::test
