// Sixteen threads of a host, with thirty-two streams.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <iterator>
#include <thread>

#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

constexpr unsigned kThreads = 16;
constexpr unsigned kRounds = 32;  // of each thread, times the scale

// Makes a mistake with a number of the thread's own, and returns what it should be told.
Failure makeMistake(const Stream& stream, unsigned kind, unsigned own) {
    const std::string number = std::to_string(9000 + own);
    const auto address = static_cast<std::uint32_t>(std::stoul("1" + number, nullptr, 16));
    const struct {
        std::function<int()> make;
        Failure told;
    } mistakes[] = {
        {[&] { return stream.run("r1" + number + ":1"); }, {265, address, "Invalid address"}},
        {[&] { return stream.run("SPIPORT=" + number); },
         {514, 0, "Couldn't find device with id (" + number + ")"}},
        {[&] { return spifns_stream_mgcmd_init(32 + own, 0, 0); }, {262, 0, "Invalid stream"}},
        {[&] { return stream.run("SPIMUL=" + number); },
         {1, 0, "SPIMUL is out of range (valid value: 0 - 16)"}},
    };
    const auto& mistake = mistakes[kind % std::size(mistakes)];
    EXPECT_EQ(mistake.make(), 1);
    return mistake.told;
}

// A thread of the host. It has two streams at a time: one lives through its calls, the other is
// offered to the next thread from inside a call, and closed there or, untaken, after the call.
class Worker {
   public:
    void work(unsigned own, Worker& next, unsigned round) {
        next_ = &next;
        const char* adapter = own % 2 == 0 ? "100" : "1";
        const unsigned address = 1000 * own;
        const Stream stream(adapter);

        std::uint32_t id = SPIFNS_NO_STREAM;
        EXPECT_EQ(spifns_stream_init(&id), 0);
        Words read(300);
        const Words written = countingWords(300, static_cast<std::uint16_t>(address + round));
        SpiAction select = setting("SPIPORT", adapter);
        SpiAction use[] = {setting("SPIMUL", "1"), writeFrom(address, written),
                           readInto(address, read)};
        EXPECT_EQ(spifns_stream_sequence(id, &select, 1), 0);
        spifns_stream_set_debug_callback(id, insideCall, this);
        inCall_ = id;
        EXPECT_EQ(spifns_stream_sequence(id, use, 3), 0);
        if (!closeOffered()) awaitClosing();
        EXPECT_EQ(read, written);

        // What succeeds between a failure and the question for it takes nothing away.
        const Failure told = makeMistake(stream, own + round, own);
        EXPECT_EQ(stream.read(address, read), 0);
        EXPECT_EQ(lastFailure(), told);
        EXPECT_EQ(read, written);
    }

    // How often it closed a stream under another thread's call.
    unsigned closings() const { return closings_; }

   private:
    // What stands in offered_ when it is no stream's identifier.
    static constexpr std::uint32_t kNothing = SPIFNS_NO_STREAM;
    static constexpr std::uint32_t kBeingClosed = SPIFNS_NO_STREAM + 1;

    static void insideCall(const char*, void* self) {
        auto& worker = *static_cast<Worker*>(self);
        worker.offered_ = worker.inCall_;
        if (worker.next_->closeOffered()) ++worker.closings_;
    }

    bool closeOffered() {
        std::uint32_t id = offered_;
        if (id >= SPIFNS_MAX_STREAMS || !offered_.compare_exchange_strong(id, kBeingClosed))
            return false;
        spifns_stream_close(id);
        offered_ = kNothing;
        return true;
    }

    void awaitClosing() const {
        while (offered_ == kBeingClosed) std::this_thread::yield();
    }

    Worker* next_ = nullptr;
    std::uint32_t inCall_ = kNothing;
    std::atomic<std::uint32_t> offered_ = kNothing;
    unsigned closings_ = 0;
};

TEST(Threads, CloseEachOthersStreamsAndKeepTheirErrorsApart) {
    Simulator simulator({100, 200}, "1.9");
    std::array<Worker, kThreads> workers;
    std::vector<std::thread> threads;
    for (unsigned own = 0; own < kThreads; ++own)
        threads.emplace_back([&workers, own] {
            EXPECT_EQ(lastFailure(), Failure());
            for (unsigned round = 0; round < kRounds * scale(); ++round)
                workers[own].work(own, workers[(own + 1) % kThreads], round);
        });
    for (std::thread& thread : threads) thread.join();
    unsigned closings = 0;
    for (const Worker& worker : workers) closings += worker.closings();
    EXPECT_GT(closings, 0U);
    std::printf("%u rounds, %u streams closed under another thread's call\n",
                kThreads * kRounds * scale(), closings);
    for (const char* count : {"count 0", "count 1"})
        EXPECT_THAT(simulator.control(count), testing::HasSubstr("open=0 peak=1\n"));
    EXPECT_EQ(spifns_count_streams(), 0U);
}

}  // namespace
}  // namespace wrenlink::test
