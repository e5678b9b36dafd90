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
#include "tests/support/scale.h"
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

// Exchanges 100 times.
int exchange(const Arguments&) {
    const Stream stream("0");
    tellParent("open");
    awaitParent();
    int failed = 0;
    for (int i = 0; i < 100; ++i) failed += stream.run("r0:1");
    tellParent(std::to_string(failed));
    return 0;
}
const ChildRole kExchange("exchange", exchange);

// Gives the adapter delay and command bits 1, 2, 3 and so on, and uses words between, until killed.
int change(const Arguments&) {
    const Stream stream("0");
    tellParent("open");
    for (int i = 1; i < kUnknown; ++i) {
        stream.run("SPI_DELAY=" + std::to_string(i));
        stream.run("SPICMDBITS=" + std::to_string(i));  // which old firmware does not have
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

// Stores 50,000 random values in both caches whenever the parent says go, so many times.
int disturb(const Arguments& arguments) {
    Caches caches;
    std::mt19937 random(kSeed);
    for (unsigned long round = std::stoul(arguments.at(0)); round > 0; --round) {
        awaitParent();
        for (int i = 0; i < 50000; ++i) {
            storeField(caches.delays().delay, static_cast<std::uint16_t>(random()));
            storeField(caches.cmdBits().both, static_cast<std::uint32_t>(random()));
        }
        tellParent("done");
    }
    return 0;
}
const ChildRole kDisturb("disturb", disturb);

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

TEST(Processes, TakeTurnsAtTheAdapter) {
    Simulator simulator;
    simulator.control("set 0 answer-us 200");
    ChildProcess first("exchange");
    ChildProcess second("exchange");
    EXPECT_EQ(first.readLine() + second.readLine(), "openopen");
    first.go();
    second.go();
    EXPECT_EQ(first.readLine() + second.readLine(), "00");
    EXPECT_THAT(simulator.control("count 0"), testing::HasSubstr("peak=1\n"));
}

// Kills a host of the first adapter at a random moment, again and again, while others work.
class Kills {
    using Clock = std::chrono::steady_clock;
    using Microseconds = std::chrono::microseconds;

   public:
    Kills(unsigned workers, const char* firmware) : simulator_({100}, firmware) {
        for (unsigned i = 1; i <= workers; ++i)
            workers_.emplace_back("work",
                                  Arguments{std::to_string(1000 * i), std::to_string(count_)});
    }

    void run() {
        for (unsigned i = 0; i < count_ && !testing::Test::HasFailure(); ++i) {
            forget();
            for (ChildProcess& worker : workers_) worker.go();
            ChildProcess victim("change");
            if (random_() % 2 == 0) victim.readLine();  // else it may only be starting
            std::this_thread::sleep_for(Microseconds(random_() % 5000));
            victim.kill();
            exchange();
            check(loadField(caches_.delays().delay), "delay");
            check(loadField(caches_.cmdBits().half[0]), "readbits");
            check(loadField(caches_.cmdBits().half[1]), "writebits");
            for (ChildProcess& worker : workers_) EXPECT_EQ(worker.readLine(), "0");
        }
        std::cout << count_ << " kills, longest exchange after one: " << longest_.count()
                  << " us\n";
        EXPECT_LT(longest_, std::chrono::seconds(5));
    }

   private:
    // The adapter's settings are 0 from here on, and the caches know nothing.
    void forget() {
        ASSERT_EQ(stream_.set("QUILLMODE", "SPI"), 0);
        for (const char* name : {"delay", "readbits", "writebits"})
            simulator_.control(std::string("set 0 ") + name + " 0");
    }

    // An exchange, behind which nothing is left that the victim asked for.
    void exchange() {
        const auto before = Clock::now();
        EXPECT_EQ(spifns_stream_marigold_xap_stopped(stream_.id()), SPIFNS_XAP_RUNNING)
            << lastFailure();
        longest_ = std::max(longest_, duration_cast<Microseconds>(Clock::now() - before));
    }

    // What is on its way is unknown.
    void check(int cached, const char* name) {
        EXPECT_THAT(cached, testing::AnyOf(kUnknown, simulator_.number(name))) << name;
    }

    const unsigned count_ = 50 * scale();
    Simulator simulator_;
    const Stream stream_{"0"};
    Caches caches_;
    std::list<ChildProcess> workers_;
    std::mt19937 random_{kSeed};
    Microseconds longest_{0};
};

TEST(Processes, LoseNothingWhenOneOfFourIsKilled) { Kills(3, "1.8").run(); }

TEST(Processes, KeepCachesRightWhenKilled) { Kills(0, "1.9").run(); }

TEST(Processes, WorkOnWhateverAPeerStoresInTheCaches) {
    Simulator simulator({100}, "1.9");
    const Stream stream("0");
    const unsigned rounds = 50 * scale();
    ChildProcess peer("disturb", {std::to_string(rounds)});
    for (unsigned i = 0; i < rounds; ++i) {
        peer.go();
        const Words written = countingWords(600, static_cast<std::uint16_t>(i));
        Words read(written.size());
        EXPECT_EQ(stream.run({setting("SPI_DELAY", "7"), writeFrom(0, written), readInto(0, read)}),
                  0);
        EXPECT_EQ(read, written);
        EXPECT_LE(std::stoul(stream.get("SPI_DELAY")), 0xFFFFU);
        ASSERT_EQ(peer.readLine(), "done");
    }
    // What is forgotten is put right.
    stream.set("QUILLMODE", "SPI");
    EXPECT_EQ(std::stoi(stream.get("SPI_DELAY")), simulator.number("delay"));
}

}  // namespace
}  // namespace wrenlink::test
