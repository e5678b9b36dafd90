// One host of a soak: soak_host NUMBER SEED
//
// Four threads work at two adapters at once, among failures, for as many milliseconds as each line
// on standard input says. Then they have closed everything, and a line on standard output tells how
// many calls there were, how many of them failed as they may, and how many things were wrong.
#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <random>
#include <thread>

#include "tests/exports/host.h"

namespace wrenlink::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kThreads = 4;
constexpr unsigned kRoundsOfAStream = 40;
constexpr std::uint32_t kPartSize = 0x10000 / 16;  // of a chip's memory, for each thread of all

struct Counts {
    std::atomic<unsigned long> calls{0};
    std::atomic<unsigned long> failures{0};
    std::atomic<unsigned long> wrong{0};
} counts;

void expect(bool right, const std::string& what) {
    if (right) return;
    ++counts.wrong;
    std::cerr << "wrong: " + what + '\n';
}

// Counts a call; a failure has to be one that an adapter can cause.
bool succeeded(int status) {
    ++counts.calls;
    if (status == 0) return true;
    ++counts.failures;
    const Failure failure = lastFailure();
    expect(status == 1 && failure.code >= 514 && failure.code <= 517 && !failure.text.empty(),
           "status " + std::to_string(status) + ", error " + std::to_string(failure.code) + ' ' +
               failure.text);
    return false;
}

// A thread, with a part of each chip's memory to itself.
class Worker {
   public:
    Worker(unsigned part, unsigned seed) : part_(part), random_(seed) {}

    void workUntil(Clock::time_point end) {
        while (Clock::now() < end) {
            const std::array<Stream, 2> streams;
            const bool selected[] = {succeeded(streams[0].set("SPIPORT", "100")),
                                     succeeded(streams[1].set("SPIPORT", "200"))};
            for (unsigned i = 0; i < kRoundsOfAStream && Clock::now() < end; ++i) {
                const unsigned adapter = below(2);
                if (!selected[adapter]) continue;
                (this->*kSteps[below(std::size(kSteps))])(streams[adapter], memory_[adapter]);
            }
        }
    }

   private:
    // What a word must be; nothing after a write that failed.
    using Memory = std::array<std::optional<std::uint16_t>, kPartSize>;
    using Step = void (Worker::*)(const Stream&, Memory&);

    void write(const Stream& stream, Memory& memory) {
        const std::uint32_t first = below(kPartSize);
        Words words(below(std::min<std::uint32_t>(kPartSize - first, 1500)) + 1);
        for (std::uint16_t& word : words) word = static_cast<std::uint16_t>(random_());
        const bool done = succeeded(stream.write(address(first), words));
        for (std::size_t i = 0; i < words.size(); ++i)
            memory[first + i] = done ? std::optional(words[i]) : std::nullopt;
    }

    void read(const Stream& stream, Memory& memory) {
        const std::uint32_t first = below(kPartSize);
        Words words(below(std::min<std::uint32_t>(kPartSize - first, 1500)) + 1);
        if (!succeeded(stream.read(address(first), words))) return;
        for (std::size_t i = 0; i < words.size(); ++i)
            expect(memory[first + i].value_or(words[i]) == words[i],
                   "word " + std::to_string(address(first) + i));
    }

    void configure(const Stream& stream, Memory&) {
        static constexpr const char* kValues[] = {"0", "4", "8"};
        succeeded(stream.set("SPI_DELAY", kValues[below(3)]));
        succeeded(stream.set("SPIMUL", kValues[below(3)]));
        stream.get("SPICLOCK");
    }

    void command(const Stream& stream, Memory&) {
        // All hosts initialise alike: the answer is the word XOR 0x1111, plus 3.
        Words word = {static_cast<std::uint16_t>(part_)};
        if (succeeded(spifns_stream_mgcmd_init(stream.id(), 0x1111, 3)) &&
            succeeded(spifns_stream_mgcmd_cmd(stream.id(), word.data(), 1, 1)))
            expect(word[0] == static_cast<std::uint16_t>((part_ ^ 0x1111) + 3), "MGCMD's answer");
        const auto state = spifns_stream_marigold_xap_stopped(stream.id());
        if (succeeded(state == SPIFNS_XAP_ERROR ? 1 : 0))
            expect(state == SPIFNS_XAP_RUNNING, "the XAP's state");
    }

    void mistake(const Stream& stream, Memory&) {
        Words word(1);
        expect(outcome(stream.read(0x10000 + part_, word)) ==
                   Failure{265, 0x10000 + part_, "Invalid address"},
               "another thread's error");
    }

    std::uint32_t address(std::uint32_t inPart) const { return part_ * kPartSize + inPart; }
    std::uint32_t below(std::size_t limit) { return static_cast<std::uint32_t>(random_() % limit); }

    static constexpr Step kSteps[] = {&Worker::write,     &Worker::read,    &Worker::read,
                                      &Worker::configure, &Worker::command, &Worker::mistake};

    const unsigned part_;
    std::mt19937 random_;
    std::array<Memory, 2> memory_;
};

int soak(unsigned number, unsigned seed) {
    std::barrier<> meeting(kThreads + 1);
    Clock::time_point end;
    bool over = false;
    std::vector<std::thread> threads;
    for (unsigned part = number * kThreads; part < (number + 1) * kThreads; ++part)
        threads.emplace_back([&, part] {
            const auto worker = std::make_unique<Worker>(part, seed + part);
            while (true) {
                meeting.arrive_and_wait();
                if (over) return;
                worker->workUntil(end);
                meeting.arrive_and_wait();
            }
        });
    for (std::string line; std::getline(std::cin, line);) {
        end = Clock::now() + std::chrono::milliseconds(std::stoi(line));
        meeting.arrive_and_wait();
        meeting.arrive_and_wait();
        expect(spifns_count_streams() == 0, "streams are left");
        std::cout << counts.calls << ' ' << counts.failures << ' ' << counts.wrong << std::endl;
    }
    over = true;
    meeting.arrive_and_wait();
    for (std::thread& thread : threads) thread.join();
    return 0;
}

}  // namespace
}  // namespace wrenlink::test

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    return wrenlink::test::soak(static_cast<unsigned>(std::stoul(argv[1])),
                                static_cast<unsigned>(std::stoul(argv[2])));
}
