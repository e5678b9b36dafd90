// The library, reached through its exports, against the least that does the same with the adapters
// of a simulator; WRENLINK_RUNTIME_DIR tells where they are.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/allocations.h"
#include "bench/exchanges.h"
#include "bench/measure.h"

namespace wrenlink::bench {
namespace {

constexpr unsigned kMostAdapters = 32;

// ---- Accesses to one adapter -------------------------------------------------------------------

void exchanges(benchmark::State& state, const Access& access) {
    ThroughLibrary ours(access, 0);
    Bare guarded(access, 0, Guards::lockAndLimit);
    Bare bare(access, 0);
    measure(state, access.jobs,
            {{"ours", [&] { ours.run(); }}, {"guarded", [&] { guarded.run(); }}, {"bare", [&] {
                                                                                      bare.run();
                                                                                  }}});
}

// The way to the answers that somebody waits for who has another program do the job.
void answers(benchmark::State& state, const Access& access) {
    Bare bare(access, 0);
    measure(state, access.jobs, {{"bare", [&] { bare.run(); }}});
}

// ---- All adapters at once ----------------------------------------------------------------------

// So many threads, each with an adapter of its own.
template <class Way>
class Threads {
   public:
    template <class... Arguments>
    Threads(unsigned threads, const Access& access, Arguments... arguments) {
        for (unsigned i = 0; i < threads; ++i)
            ways_.push_back(std::make_unique<Way>(access, i, arguments...));
    }
    // Each thread reads so often that their start does not count.
    void run() {
        constexpr int kTimes = 50;
        std::vector<std::jthread> threads;
        for (const auto& way : ways_)
            threads.emplace_back([&way] {
                for (int i = 0; i < kTimes; ++i) way->run();
            });
    }

   private:
    std::vector<std::unique_ptr<Way>> ways_;
};

void threads(benchmark::State& state, const Access& access) {
    Threads<ThroughLibrary> ours(kMostAdapters, access);
    Threads<Bare> guarded(kMostAdapters, access, Guards::lockAndLimit);
    Threads<Bare> one(1, access, Guards::lockAndLimit);
    measure(state, 1,
            {{"ours", [&] { ours.run(); }}, {"guarded", [&] { guarded.run(); }}, {"one", [&] {
                                                                                      one.run();
                                                                                  }}});
}

// ---- Processes that share an adapter -----------------------------------------------------------

// How many accesses each of so many processes gets done between the same two moments.
std::vector<double> share(const Access& access, std::size_t processes) {
    using namespace std::chrono_literals;
    const auto from = std::chrono::steady_clock::now() + 100ms;  // when all have started
    const auto to = from + 300ms;
    const std::size_t size = processes * sizeof(double);
    auto* const done = static_cast<double*>(
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    for (std::size_t i = 0; i < processes; ++i) {
        if (::fork() != 0) continue;
        ThroughLibrary way(access, 0);
        std::this_thread::sleep_until(from);
        while (std::chrono::steady_clock::now() < to) {
            way.run();
            ++done[i];
        }
        ::_exit(0);
    }
    while (::wait(nullptr) > 0) {
    }
    std::vector<double> counts(done, done + processes);
    ::munmap(done, size);
    return counts;
}

void processes(benchmark::State& state, const Access& access) {
    for (auto _ : state) {
        const double alone = share(access, 1).front();
        const auto both = share(access, 2);
        state.counters["alone"] = alone;
        state.counters["together"] = both[0] + both[1];
        state.counters["slower"] = std::min(both[0], both[1]);
    }
}

// ---- What a host needs -------------------------------------------------------------------------

// What the library takes from the heap for a sequence of so many exchanges.
void allocationsOfSequence(benchmark::State& state) {
    constexpr std::size_t kExchanges = 60;
    constexpr std::size_t kCount = 505;
    const Stream stream;
    Words words(kCount);
    Actions actions(kExchanges, access(SpiAction::Read, 0, kCount, words.data()));
    stream.run(actions);
    const std::uint64_t before = allocations();
    for (auto _ : state) stream.run(actions);
    state.counters["allocations"] = static_cast<double>(allocations() - before);
}

// The memory of this process, in bytes; what it shares with others counts in part.
double memory() {
    std::ifstream file("/proc/self/smaps_rollup");
    for (std::string word; file >> word;)
        if (double kibibytes = 0; word == "Pss:" && file >> kibibytes) return 1024 * kibibytes;
    return 0;
}

// A stream for each adapter, each of which has carried out a read.
void memoryOfStreams(benchmark::State& state, const Access& access) {
    for (auto _ : state) {
        const double before = memory();
        Threads<ThroughLibrary> all(kMostAdapters, access);
        all.run();
        state.counters["before"] = before;
        state.counters["with_streams"] = memory();
    }
}

using Measure = void (*)(benchmark::State&, const Access&);
constexpr struct {
    const char* name;
    Measure measure;
} kMeasures[] = {{"exchanges", exchanges},
                 {"answers", answers},
                 {"threads", threads},
                 {"processes", processes},
                 {"memory", memoryOfStreams}};

// Called after the measure and the access.
void registerAll() {
    for (const Access& access : accesses())
        for (const auto& [name, measure] : kMeasures)
            benchmark::RegisterBenchmark((std::string(name) + "/" + access.name).c_str(), measure,
                                         access)
                ->UseRealTime();
    benchmark::RegisterBenchmark("allocations", allocationsOfSequence);
}

}  // namespace
}  // namespace wrenlink::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    wrenlink::bench::registerAll();
    return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
