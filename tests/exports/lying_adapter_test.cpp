// Adapters that lie, are late or fall silent, at every exchange of a scenario:
// the host is told what the exchange shows, no more and no less, and the next run succeeds.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <mutex>
#include <numeric>
#include <random>
#include <thread>

#include "tests/exports/oracle.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

using namespace std::chrono_literals;

constexpr std::uint16_t kSentinel = 0x5A5A;  // in words that wait to be filled
constexpr char kTimedOut[] = ": Driver IO timed out";
constexpr char kFailed[] = ": Driver IO failed";
// Windows' code. Wine now and then cancels a request in place of one that has just ended.
constexpr int kCancelled = 995;

struct Host {
    Stream stream;
    std::string port;
    std::vector<int> words = {};  // that a step got, in its order
};

void show(Host& host, const Words& words) {
    host.words.insert(host.words.end(), words.begin(), words.end());
}

// Has the answer among the words if it is one, else as the status.
std::function<int(Host&)> ask(const std::string& request) {
    return [=](Host& host) {
        const std::string answer = host.stream.ask(request);
        if (request[0] == '!') return answer.empty() ? 0 : -1;
        if (request[0] != '?' && request != "XAP") return std::stoi(answer);
        host.words.push_back(std::stoi(answer));
        return 0;
    };
}

int select(Host& host) {
    const int status = host.stream.set("SPIPORT", host.port.c_str());
    host.words.push_back(std::stoi(host.stream.get("QUILLVERSION"), nullptr, 16));
    return status;
}

int readSome(Host& host) {
    const Words written = {7, 8, 9};
    std::array reads = {Words(3, kSentinel), Words(4, kSentinel), Words(505, kSentinel)};
    const int status = host.stream.run({readInto(0x200, reads[0]), writeFrom(0x300, written),
                                        readInto(0x100, reads[1]), readInto(0x2FF, reads[2])});
    for (const Words& words : reads) show(host, words);
    return status;
}

int mgcmd(Host& host) {
    Words words(5, kSentinel);
    const int status = spifns_stream_mgcmd_cmd(host.stream.id(), words.data(), 5, 1);
    show(host, words);
    return status;
}

struct Step {
    const char* what;
    std::function<int(Host&)> run;
    int failed;                 // what it returns when an exchange fails
    const char* appended = "";  // to the failure of its last exchange
};

// 19 exchanges, with the one that opening the first stream makes.
const Step kSteps[] = {
    {"select", select, 0},
    {"set delay", ask("SPI_DELAY=9"), 1},
    {"mode", ask("QUILLMODE=SPI"), 1},
    {"get delay", ask("?SPI_DELAY"), 0},
    {"device", ask("SPIMUL=3"), 1},
    {"write", ask("SPICMDBITS=5 w100:600"), 1},
    {"read", readSome, 1},
    {"MGCMD start", ask("MGCMD start"), 1},
    {"MGCMD", mgcmd, 1},
    {"XAP state", ask("XAP"), 0},
    {"DFU", ask("!DFU"), 0},
    {"no delay", ask("SPI_DELAY=0"), 1},
    {"mode again", ask("QUILLMODE=SPI"), 1},
    {"slower", ask("!SPISLOWER"), 0, ": Unable to slow down SPI"},
};

Bytes fromHex(const std::string& digits) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

// How the host's side sees the end of a request that the simulator has logged; `told` is the text
// of its last error.
Failure failureOf(const std::string& line, const std::string& told) {
    const std::string end = field(line, "end");
    const int status = std::stoi(field(line, "status"));
    if (end == "silence" || field(line, "faults") == "delay") {
        const std::string timedOut = textOf(NativeError::stillPending) + kTimedOut;
        const std::string cancelled = textOf(kCancelled) + kFailed;
        if (told.starts_with(cancelled)) return {516, 0, cancelled};
        if (told.starts_with(timedOut) || end == "silence") return {516, 0, timedOut};
    }
    if (end == "completion" && status == 0) return {};
    return {516, 0,
            (end == "close"  ? textOf(NativeError::closed)
             : end == "runt" ? textOf(NativeError::cutOff)
                             : textOf(status)) +
                kFailed};
}

// Stands where the frames of a call were, until a late reply has come: it must not land here.
[[gnu::noinline]] bool nothingLands() {
    std::array<volatile std::uint8_t, 8192> stack;
    for (auto& byte : stack) byte = 0xA5;
    std::this_thread::sleep_for(60ms);
    return std::all_of(stack.begin(), stack.end(), [](std::uint8_t byte) { return byte == 0xA5; });
}

using Exchanges = std::vector<Exchange>;

// What a run of the scenario showed.
struct Outcome {
    std::vector<int> words;               // of all steps
    std::vector<std::size_t> replySizes;  // of all exchanges
    bool failed = false;
    unsigned timedOut = 0;  // exchanges
};

// Runs the scenario on one adapter. Several threads may, each on an adapter of its own.
class Bench {
   public:
    Bench(Simulator& simulator, unsigned adapter) : simulator_(simulator), adapter_(adapter) {
        control("xap # stopped");
    }

    // '#' stands for the adapter.
    void control(std::string line) {
        const std::lock_guard guard(turn_);
        simulator_.control(line.replace(line.find('#'), 1, std::to_string(adapter_)));
    }

    // Checks what each step tells.
    Outcome run();
    // Runs the scenario again, as if nothing had happened.
    void expectSame(const Outcome& clean) {
        const Outcome again = run();
        if (again.timedOut > 0) return;  // the machine is busy
        EXPECT_FALSE(again.failed);
        EXPECT_EQ(again.words, clean.words);
    }

   private:
    Exchanges takeExchanges(Outcome& outcome);

    static inline std::mutex turn_;
    Simulator& simulator_;
    unsigned adapter_;
};

Exchanges Bench::takeExchanges(Outcome& outcome) {
    const std::lock_guard guard(turn_);
    Exchanges exchanges;
    for (const std::string& line : simulator_.takeLog(adapter_)) {
        exchanges.push_back({fromHex(field(line, "frame")), fromHex(field(line, "reply")),
                             failureOf(line, lastFailure().text)});
        outcome.replySizes.push_back(exchanges.back().reply.size());
    }
    return exchanges;
}

bool hasTimedOut() { return lastFailure().text.find(kTimedOut) != std::string::npos; }

void expectTold(const Step& step, int status, const Host& host, const Exchanges& exchanges) {
    Told told = tell(exchanges);
    if (!exchanges.empty() && exchanges.back().failure.code != 0)
        told.failure.text += step.appended;
    EXPECT_EQ(lastFailure(), told.failure);
    EXPECT_EQ(status, told.failure.code == 0 ? 0 : step.failed);
    EXPECT_TRUE(host.words.empty() || told.agreesWith(host.words, kSentinel))
        << testing::PrintToString(host.words) << " for " << testing::PrintToString(told.words);
}

Outcome Bench::run() {
    Outcome former;
    takeExchanges(former);
    Outcome outcome;
    spifns_clear_last_error();
    Host host = {{}, std::to_string(adapter_)};
    EXPECT_EQ(tell(takeExchanges(outcome)).failure, lastFailure());
    DebugTexts texts(host.stream);
    for (const Step& step : kSteps) {
        SCOPED_TRACE(step.what);
        spifns_clear_last_error();
        host.words.clear();
        const auto start = std::chrono::steady_clock::now();
        const int status = step.run(host);
        const auto spent = std::chrono::steady_clock::now() - start;
        const bool timedOut = hasTimedOut();
        EXPECT_TRUE(!timedOut || (spent > 900ms && nothingLands()));
        EXPECT_LT(spent, 10s);

        const Exchanges exchanges = takeExchanges(outcome);
        const std::vector<std::string> shown = texts.take();
        // A machine that is busy enough makes adapters late that are not.
        if (!timedOut || tell(exchanges).failure.code != 0) {
            expectTold(step, status, host, exchanges);
            EXPECT_EQ(shown, tell(exchanges).texts);
        }
        outcome.failed = outcome.failed || lastFailure().code != 0;
        outcome.words.insert(outcome.words.end(), host.words.begin(), host.words.end());
        if (timedOut) ++outcome.timedOut;
    }
    return outcome;
}

class LyingAdapter : public testing::Test {
   protected:
    LyingAdapter() { EXPECT_FALSE(clean_.failed || HasFailure()); }

    // Runs the scenario once for each of its exchanges, struck by the fault.
    void strikeEach(const std::string& fault, bool onlyReplies);

    // A version that no lie turns into one that refuses what the scenario does.
    Simulator simulator_{{100}, "2.1"};
    Bench bench_{simulator_, 0};
    Outcome clean_ = bench_.run();
};

void LyingAdapter::strikeEach(const std::string& fault, bool onlyReplies) {
    for (std::size_t i = 0; i < clean_.replySizes.size() && !HasFailure(); ++i) {
        if (onlyReplies && clean_.replySizes[i] == 0) continue;
        SCOPED_TRACE(fault + " at exchange " + std::to_string(i));
        bench_.control("fault # " + fault + " skip=" + std::to_string(i));
        bench_.run();
        bench_.control("clear #");
        bench_.expectSame(clean_);
    }
}

TEST_F(LyingAdapter, FailsAtEachExchange) {
    for (const char* fault : {"refuse 5", "close", "empty", "runt 3"}) strikeEach(fault, false);
}

TEST_F(LyingAdapter, RepliesMoreOrOldThingsAtEachExchange) {
    for (const char* fault : {"stale", "twice", "long 3000"}) strikeEach(fault, false);
}

TEST_F(LyingAdapter, ChangesEachReply) {
    for (const char* fault : {"short 1", "short 4", "short 2000", "corrupt 1 1", "corrupt 3 0x40",
                              "corrupt 5 0xff", "corrupt 13 1", "badstatus 0xdead"})
        strikeEach(fault, true);
    std::mt19937 random(42);
    for (unsigned i = 0; i < 4 * scale(); ++i)
        strikeEach(
            "corrupt " + std::to_string(random() % 40) + " " + std::to_string(0x10 << random() % 4),
            true);
}

// Each adapter is late at another exchange, or silent.
TEST(LateAdapter, IsNotHeard) {
    constexpr unsigned kAdapters = 31;  // one stream more keeps the list of adapters
    AdapterIds ids(kAdapters);
    std::iota(ids.begin(), ids.end(), 100);
    Simulator simulator(ids, "1.9");
    const Stream keeper;
    std::atomic<unsigned> late = 0;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kAdapters; ++i)
        threads.emplace_back([i, &simulator, &late] {
            const bool isSilent = i % 8 == 7;
            const std::string fault =
                isSilent ? "silence" : "delay " + std::to_string(1010 + 10 * i);
            Bench bench(simulator, i);
            const Outcome clean = bench.run();
            EXPECT_FALSE(clean.failed);
            for (unsigned round = 0; round < scale() && !testing::Test::HasFailure(); ++round) {
                const std::size_t exchange = (i + round) % clean.replySizes.size();
                bench.control("fault # " + fault + " skip=" + std::to_string(exchange));
                const unsigned timedOut = bench.run().timedOut;
                if (!isSilent) late += timedOut;
                bench.expectSame(clean);
            }
            spifns_clear_last_error();
        });
    for (std::thread& thread : threads) thread.join();
    std::printf("%u late replies\n", late.load());
    EXPECT_GE(late, kAdapters * scale() / 2);
}

}  // namespace
}  // namespace wrenlink::test
