// What the library itself costs: its sources linked with an adapter that answers at once, in the
// same process. Names end in /wrenlink, or in the name of the baseline; WRENLINK_RUNTIME_DIR tells
// where the shared objects go.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench/bare_exchange.h"
#include "bench/bare_file_posix.h"
#include "bench/stream.h"
#include "platform/named_mutex.h"
#include "platform/os.h"
#include "quill/driver_exchange.h"

namespace wrenlink::bench {
namespace {

// For what uses kernel objects without a stream.
const bool hasNamespace = os::chooseNamespace();

Actions oneWordReads(Words& words) {
    Actions actions;
    for (std::uint32_t i = 0; i < words.size(); ++i)
        actions.push_back(access(SpiAction::Read, i & 0xFFFF, 1, &words[i]));
    return actions;
}

// ---- One-word reads, so many in one sequence ---------------------------------------------------
//
// The first runs take their memory from the system, until the allocator has learnt to keep so much;
// that is left out of both measures.
constexpr int kFirstRuns = 2;

void records(benchmark::State& state) {
    const Stream stream;
    Words words(static_cast<std::size_t>(state.range(0)));
    Actions actions = oneWordReads(words);
    for (int i = 0; i < kFirstRuns; ++i) stream.run(actions);
    for (auto _ : state) stream.run(actions);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The exchanges of such a sequence alone.
void recordExchanges(benchmark::State& state) {
    constexpr std::int64_t kReadsInOne = 126;
    Frame frame = readFrame(0, 1);
    const Frame gapAndRead = frame;
    for (std::int64_t i = 1; i < kReadsInOne; ++i) {
        frame.bytes.insert(frame.bytes.end(), 2, 0);
        frame.bytes.insert(frame.bytes.end(), gapAndRead.bytes.begin() + 5, gapAndRead.bytes.end());
    }
    const std::size_t length = frame.bytes.size() - 4;
    const std::size_t replySize = frame.replySize * kReadsInOne;
    frame.bytes[0] = static_cast<std::uint8_t>(length);
    frame.bytes[1] = static_cast<std::uint8_t>(length >> 8);
    frame.bytes[2] = static_cast<std::uint8_t>(replySize);
    frame.bytes[3] = static_cast<std::uint8_t>(replySize >> 8);
    std::uint8_t reply[1040];
    for (auto _ : state)
        for (std::int64_t sent = 0; sent < state.range(0); sent += kReadsInOne)
            Quill_Command(frame.bytes.data(), reply, "/instant/0");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The least that gathering them takes: a copy of the records in memory of its own, and of the
// words.
void recordCopies(benchmark::State& state) {
    Words words(static_cast<std::size_t>(state.range(0)));
    const Actions actions = oneWordReads(words);
    Words target(words.size());
    const auto copy = [&] {
        Actions gathered(actions);
        std::copy(words.begin(), words.end(), target.begin());
        benchmark::DoNotOptimize(gathered.data());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    };
    for (int i = 0; i < kFirstRuns; ++i) copy();
    for (auto _ : state) copy();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(records)->Name("records/wrenlink")->Arg(10'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(recordExchanges)->Name("records/exchanges")->Arg(10'000)->Arg(100'000)->Arg(1'000'000);
BENCHMARK(recordCopies)->Name("records/memcpy")->Arg(10'000)->Arg(100'000)->Arg(1'000'000);

// ---- Locks and reads of what is at hand --------------------------------------------------------

void namedMutex(benchmark::State& state) {
    for (auto _ : state) {
        NamedMutex mutex("bench");
        if (!mutex.lock()) state.SkipWithError("cannot lock");
        mutex.unlock();
    }
}
BENCHMARK(namedMutex)->Name("mutex/wrenlink");

void openFile(benchmark::State& state) {
    BareFile file;
    for (auto _ : state)
        if (!file.openAndClose()) state.SkipWithError("cannot open");
}
BENCHMARK(openFile)->Name("mutex/file");

void lastError(benchmark::State& state) {
    spifns_stream_getvar(SPIFNS_NO_STREAM, "SPIPORT");  // fails
    for (auto _ : state) {
        const char* text = nullptr;
        benchmark::DoNotOptimize(spifns_get_last_error(nullptr, &text));
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(lastError)->Name("last_error/wrenlink");
// So many calls and no others, for counting what they ask of the system.
BENCHMARK(lastError)->Name("last_error/calls")->Iterations(1'000);
BENCHMARK(lastError)->Name("last_error/calls")->Iterations(100'000);

void threadLocal(benchmark::State& state) {
    thread_local volatile int value = 0;
    for (auto _ : state) benchmark::DoNotOptimize(static_cast<int>(value));
}
BENCHMARK(threadLocal)->Name("last_error/thread_local");

void cachedDelay(benchmark::State& state) {
    const Stream stream;
    stream.set("SPI_DELAY", "7");
    for (auto _ : state) benchmark::DoNotOptimize(spifns_stream_getvar(stream.id(), "SPI_DELAY"));
}
BENCHMARK(cachedDelay)->Name("cached_delay/wrenlink");
BENCHMARK(cachedDelay)->Name("cached_delay/calls")->Iterations(1'000);
BENCHMARK(cachedDelay)->Name("cached_delay/calls")->Iterations(100'000);

void mappedWord(benchmark::State& state) {
    constexpr std::size_t kSize = sizeof(std::uint16_t);
    bool existed = false;
    os::FileMapping mapping = os::FileMapping::open("bench word", kSize, existed);
    auto* const word = static_cast<const volatile std::uint16_t*>(mapping.map(kSize));
    if (word == nullptr) return state.SkipWithError("cannot map");
    for (auto _ : state) benchmark::DoNotOptimize(static_cast<std::uint16_t>(*word));
}
BENCHMARK(mappedWord)->Name("cached_delay/word");

}  // namespace
}  // namespace wrenlink::bench

BENCHMARK_MAIN();
