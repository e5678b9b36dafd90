// Several processes at one adapter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <list>
#include <random>
#include <thread>

#include "quill/adapter_settings.h"
#include "tests/exports/host.h"
#include "tests/support/child_process.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

constexpr unsigned kSeed = 42;
constexpr char kConfiguration[] = "SPI_DELAY=9 SPICMDBITS=3 r0:1 w0:1";

// Gives the adapter a delay and command bits, and stays until the parent says go.
int configure(const Arguments&) {
    const Stream stream("0");
    tellParent(std::to_string(stream.run(kConfiguration)));
    awaitParent();
    return 0;
}
const ChildRole kConfigure("configure", configure);

// Gives the adapter the delays 1, 2, 3 and so on, and uses words between, until killed.
int change(const Arguments&) {
    const Stream stream("0");
    tellParent("open");
    for (int i = 1; i < kUnknown; ++i) {
        stream.run("SPI_DELAY=" + std::to_string(i));
        stream.run("w0:600 r0:600");
    }
    return 0;
}
const ChildRole kChange("change", change);

// Writes and reads words of its own whenever the parent says go, so many times; tells how often
// they were wrong.
int work(const Arguments& arguments) {
    const auto first = static_cast<std::uint16_t>(std::stoul(arguments.at(0)));
    const Stream stream("0");
    for (auto round = static_cast<unsigned>(std::stoul(arguments.at(1))); round > 0; --round) {
        awaitParent();
        int wrong = 0;
        for (unsigned i = 0; i < 5; ++i) {
            const Words written = countingWords(600, static_cast<std::uint16_t>(round * 5 + i));
            Words read(written.size());
            const int status = stream.run({writeFrom(first, written), readInto(first, read)});
            wrong += status != 0 || read != written;
        }
        tellParent(std::to_string(wrong));
    }
    return 0;
}
const ChildRole kWork("work", work);

// The caches of the adapter with the id 100.
class Caches {
   public:
    Caches() { os::chooseNamespace(); }

    DelayCache& delays() { return *reinterpret_cast<DelayCache*>(delays_.view()); }
    CmdBitsCache& cmdBits() { return *reinterpret_cast<CmdBitsCache*>(cmdBits_.view()); }

   private:
    SharedMemory delays_{"quilldelays100", sizeof(DelayCache), kUnknownByte};
    SharedMemory cmdBits_{"quillcmdbits100", sizeof(CmdBitsCache), kUnknownByte};
};

TEST(Processes, ShareWhatTheAdapterHas) {
    Simulator simulator({100}, "1.9");
    {
        ChildProcess child("configure");
        ASSERT_EQ(child.readLine(), "0");
        const Stream stream("0");
        simulator.takeFrames();
        EXPECT_EQ(stream.get("SPI_DELAY"), "9");
        EXPECT_EQ(stream.run(kConfiguration), 0);
        EXPECT_EQ(simulator.takeFrames(), frames("r0:1 w0:1"));
        // What one forgets is forgotten by all, and what one learns is known to all.
        child.kill();
        EXPECT_EQ(stream.get("SPI_DELAY"), "9");
        EXPECT_EQ(simulator.takeFrames(), Frames());
    }
    // With the last holder, killed or not, it is gone.
    const Stream stream("0");
    simulator.takeFrames();
    EXPECT_EQ(stream.get("SPI_DELAY"), "9");
    EXPECT_EQ(simulator.takeFrames(), frames("0300 0400 00 0500"));
}

// Kills a host of the adapter at a random moment, again and again, while three others work.
TEST(Processes, LoseNothingWhenOneOfFourIsKilled) {
    using Clock = std::chrono::steady_clock;
    using std::chrono::microseconds;
    const unsigned kills = 50 * scale();
    Simulator simulator({100}, "1.9");
    const Stream stream("0");
    Caches caches;
    std::list<ChildProcess> workers;
    for (const char* first : {"1000", "2000", "3000"})
        workers.emplace_back("work", Arguments{first, std::to_string(kills)});
    std::mt19937 random(kSeed);
    microseconds longest{0};
    for (unsigned i = 0; i < kills && !HasFailure(); ++i) {
        // The delay is 0 from here on, and nobody knows.
        ASSERT_EQ(stream.set("QUILLMODE", "SPI"), 0);
        simulator.control("set 0 delay 0");
        for (ChildProcess& worker : workers) worker.go();
        ChildProcess victim("change");
        if (random() % 2 == 0) victim.readLine();  // else it may only be starting
        std::this_thread::sleep_for(microseconds(random() % 5000));
        victim.kill();
        // Behind an exchange nothing is left that the victim asked for.
        const auto before = Clock::now();
        EXPECT_EQ(spifns_stream_marigold_xap_stopped(stream.id()), SPIFNS_XAP_RUNNING)
            << lastFailure();
        longest = std::max(longest, duration_cast<microseconds>(Clock::now() - before));
        EXPECT_THAT(loadField(caches.delays().delay),
                    testing::AnyOf(kUnknown, simulator.number("delay")));
        for (ChildProcess& worker : workers) EXPECT_EQ(worker.readLine(), "0");
    }
    std::cout << kills << " kills, longest exchange after one: " << longest.count() << " us\n";
    EXPECT_LT(longest, std::chrono::seconds(5));
}

TEST(Processes, WorkOnWhateverAPeerStoresInTheCaches) {
    Simulator simulator({100}, "1.9");
    const Stream stream("0");
    Caches caches;
    const std::jthread peer([&caches](const std::stop_token& stop) {
        std::mt19937 random(kSeed);
        while (!stop.stop_requested()) {
            storeField(caches.delays().delay, static_cast<std::uint16_t>(random()));
            storeField(caches.cmdBits().both, static_cast<std::uint32_t>(random()));
        }
    });
    for (unsigned i = 0; i < 50 * scale(); ++i) {
        const Words written = countingWords(600, static_cast<std::uint16_t>(i));
        Words read(written.size());
        EXPECT_EQ(stream.run({setting("SPI_DELAY", "7"), writeFrom(0, written), readInto(0, read)}),
                  0);
        EXPECT_EQ(read, written);
        EXPECT_LE(std::stoul(stream.get("SPI_DELAY")), 0xFFFFU);
    }
}

}  // namespace
}  // namespace wrenlink::test
