// The library, reached through its exports, against bare exchanges with the same adapters, which a
// simulator serves. Names end in /wrenlink, /bare, or /guarded for bare exchanges with the system
// calls of a lock and a time limit; WRENLINK_RUNTIME_DIR tells where the adapters are.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "bench/allocations.h"
#include "bench/exchanges.h"

namespace wrenlink::bench {
namespace {

struct Guarded : Bare {
    Guarded(const Access& access, std::size_t adapter)
        : Bare(access, adapter, Guards::lockAndLimit) {}
};

// One adapter for each thread.
template <class Way>
void exchanges(benchmark::State& state, const Access& access) {
    Way way(access, static_cast<unsigned>(state.thread_index()));
    for (auto _ : state) way.run();
    state.SetItemsProcessed(state.iterations());
}

// One of several processes that share an adapter: all count what they get done between the same two
// moments, which WRENLINK_BENCH_WINDOW gives in nanoseconds of the steady clock, "FROM TO".
void share(benchmark::State& state, const Access& access) {
    using Clock = std::chrono::steady_clock;
    const char* window = std::getenv("WRENLINK_BENCH_WINDOW");
    if (window == nullptr) return state.SkipWithError("no WRENLINK_BENCH_WINDOW");
    char* rest = nullptr;
    const Clock::time_point from(std::chrono::nanoseconds(std::strtoll(window, &rest, 10)));
    const Clock::time_point to(std::chrono::nanoseconds(std::strtoll(rest, nullptr, 10)));
    ThroughLibrary way(access, 0);
    if (Clock::now() >= from) state.SkipWithError("started too late");
    std::int64_t done = 0;
    for (auto _ : state) {
        std::this_thread::sleep_until(from);
        for (; Clock::now() < to; ++done) way.run();
        state.SetIterationTime(std::chrono::duration<double>(to - from).count());
    }
    state.SetItemsProcessed(done);
}

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
    state.counters["allocations"] =
        static_cast<double>(allocations() - before) / static_cast<double>(state.iterations());
}

// What a host does that looks for adapters and chooses one.
void openListSelectClose(benchmark::State& state) {
    for (auto _ : state) {
        unsigned ports = 0;
        std::uint32_t id = SPIFNS_NO_STREAM;
        require(spifns_stream_init(&id));
        spifns_enumerate_ports(
            [](std::uint32_t, const char*, void* count) { ++*static_cast<unsigned*>(count); },
            &ports);
        SpiAction action{};
        action.type = SpiAction::SetVar;
        action.u.variable = {"SPIPORT", "0", nullptr};
        require(spifns_stream_sequence(id, &action, 1));
        spifns_stream_close(id);
        benchmark::DoNotOptimize(ports);
    }
}

// The access's measure is called by its name and what it is.
template <class Measure>
benchmark::internal::Benchmark* add(const Access& access, const char* what, Measure measure) {
    const std::string name = std::string(access.name) + "/" + what;
    return benchmark::RegisterBenchmark(name.c_str(), measure, access);
}

void registerAll() {
    for (const Access& access : accesses()) {
        add(access, "wrenlink", exchanges<ThroughLibrary>)->UseRealTime();
        add(access, "bare", exchanges<Bare>)->UseRealTime();
        add(access, "guarded", exchanges<Guarded>)->UseRealTime();
        add(access, "share", share)->Iterations(1)->UseManualTime();
        for (const int threads : {1, 32}) {
            add(access, "threads", exchanges<ThroughLibrary>)->Threads(threads)->UseRealTime();
            add(access, "bare_threads", exchanges<Bare>)->Threads(threads)->UseRealTime();
        }
    }
    benchmark::RegisterBenchmark("allocations/wrenlink", allocationsOfSequence);
    benchmark::RegisterBenchmark("open_list_select_close/wrenlink", openListSelectClose)
        ->UseRealTime();
}

}  // namespace
}  // namespace wrenlink::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    wrenlink::bench::registerAll();
    return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
