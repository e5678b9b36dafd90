// The library, reached through its exports, against bare exchanges with the same adapters, which a
// simulator serves. Names end in /wrenlink or /bare; WRENLINK_RUNTIME_DIR tells where the adapters
// are.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "bench/bare_exchange.h"
#include "wrenlink/spifns.h"

namespace wrenlink::bench {
namespace {

void require(int status, const char* what) {
    if (status == 0) return;
    const char* text = nullptr;
    const int code = spifns_get_last_error(nullptr, &text);
    std::fprintf(stderr, "%s: error %d: %s\n", what, code, text);
    std::exit(1);
}

// A stream with one adapter selected.
class Stream {
   public:
    explicit Stream(unsigned port) {
        require(spifns_stream_init(&id_), "open");
        const std::string value = std::to_string(port);
        SpiAction action{};
        action.type = SpiAction::SetVar;
        action.u.variable = {"SPIPORT", value.c_str(), nullptr};
        run({&action, 1});
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { spifns_stream_close(id_); }

    void run(std::span<SpiAction> actions) const {
        require(
            spifns_stream_sequence(id_, actions.data(), static_cast<std::uint32_t>(actions.size())),
            "sequence");
    }

   private:
    std::uint32_t id_ = SPIFNS_NO_STREAM;
};

// The accesses, each of at most 0xFFFF words, that reach all the words from address 0 on.
std::vector<SpiAction> accesses(std::uint32_t type, std::vector<std::uint16_t>& words) {
    constexpr std::size_t kLongest = 0xFFFF;
    std::vector<SpiAction> actions;
    for (std::size_t start = 0; start < words.size(); start += kLongest) {
        SpiAction& action = actions.emplace_back();
        action.type = type;
        action.u.memory.address = static_cast<std::uint32_t>(start);
        action.u.memory.length =
            static_cast<std::uint32_t>(std::min(words.size() - start, kLongest));
        action.u.memory.data = &words[start];
    }
    return actions;
}

void wrenlinkAccess(benchmark::State& state, std::uint32_t type, std::uint32_t count) {
    const Stream stream(static_cast<unsigned>(state.thread_index()));
    std::vector<std::uint16_t> words(count);
    std::vector<SpiAction> actions = accesses(type, words);
    stream.run(actions);  // the adapter knows its settings from here on
    for (auto _ : state) stream.run(actions);
    state.SetItemsProcessed(state.iterations());
}

void bareAccess(benchmark::State& state, const std::vector<Frame>& frames) {
    BareExchange adapter(adapterPaths().at(static_cast<std::size_t>(state.thread_index())));
    for (auto _ : state) {
        for (const Frame& frame : frames) adapter.run(frame);
    }
    state.SetItemsProcessed(state.iterations());
}

// What a host does that looks for adapters and chooses one.
void openListSelectClose(benchmark::State& state) {
    for (auto _ : state) {
        unsigned ports = 0;
        std::uint32_t id = SPIFNS_NO_STREAM;
        require(spifns_stream_init(&id), "open");
        spifns_enumerate_ports(
            [](std::uint32_t, const char*, void* count) { ++*static_cast<unsigned*>(count); },
            &ports);
        SpiAction action{};
        action.type = SpiAction::SetVar;
        action.u.variable = {"SPIPORT", "0", nullptr};
        require(spifns_stream_sequence(id, &action, 1), "select");
        spifns_stream_close(id);
        benchmark::DoNotOptimize(ports);
    }
}

// One table of accesses: each is measured through the library and bare.
struct Access {
    const char* name;
    std::uint32_t type;
    std::uint32_t count;
    std::vector<Frame> frames;
};

void registerAccesses() {
    const Access accesses[] = {
        {"read1", SpiAction::Read, 1, {readFrame(0, 1)}},
        {"read505", SpiAction::Read, 505, {readFrame(0, 505)}},
        {"read_memory", SpiAction::Read, kMemoryWords, wholeMemoryReads()},
        {"write_memory", SpiAction::Write, kMemoryWords, wholeMemoryWrites()},
    };
    for (const Access& access : accesses) {
        const std::string name = access.name;
        benchmark::RegisterBenchmark((name + "/wrenlink").c_str(), wrenlinkAccess, access.type,
                                     access.count)
            ->UseRealTime();
        benchmark::RegisterBenchmark((name + "/bare").c_str(), bareAccess, access.frames)
            ->UseRealTime();
    }
    // One adapter for each thread.
    for (const int threads : {1, 32})
        benchmark::RegisterBenchmark("threads/wrenlink", wrenlinkAccess, SpiAction::Read, 505U)
            ->Threads(threads)
            ->UseRealTime();
    benchmark::RegisterBenchmark("open_list_select_close/wrenlink", openListSelectClose)
        ->UseRealTime();
}

}  // namespace
}  // namespace wrenlink::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    wrenlink::bench::registerAccesses();
    return benchmark::RunSpecifiedBenchmarks() > 0 ? 0 : 1;
}
