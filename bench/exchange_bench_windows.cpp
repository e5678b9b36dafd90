// exchange_bench BLOCKS ROUNDS: the DLL against the least that does the same with the first adapter
// of the simulator's driver. Prints its measures as Google Benchmark does, which is not packaged
// for this system, as far as scripts/bench reads them.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "bench/exchanges.h"
#include "bench/turns.h"

namespace wrenlink::bench {
namespace {

void measure(const char* name, int blocks, int rounds, unsigned jobs, std::vector<Way> ways) {
    for (int block = 0; block < blocks; ++block) {
        Turns turns(jobs, ways);
        for (int round = 0; round < rounds; ++round) turns.round();
        std::printf("{\"name\": \"%s\"", name);
        for (const Way& way : turns.results()) std::printf(", \"%s\": %.0f", way.name, way.clock);
        std::printf("},\n");
    }
}

void measureAccess(const Access& access, int blocks, int rounds) {
    ThroughLibrary ours(access, 0);
    Bare guarded(access, 0, Guards::lockAndLimit);
    Bare bare(access, 0);
    measure(access.name, blocks, rounds, access.jobs,
            {{"ours", [&] { ours.run(); }}, {"guarded", [&] { guarded.run(); }}, {"bare", [&] {
                                                                                      bare.run();
                                                                                  }}});
}

void loadAndUnload(const char* module) {
    const HMODULE loaded = ::LoadLibraryA(module);
    if (loaded == nullptr) std::exit(1);
    ::FreeLibrary(loaded);
}

// A copy of the DLL, since this program has it already.
void measureLoading(int blocks) {
    ::CopyFileA("wrenlink.dll", "bench_copy.dll", FALSE);
    measure("load", blocks, 1, 1,
            {{"ours", [] { loadAndUnload("bench_copy.dll"); }},
             {"system", [] { loadAndUnload("winusb.dll"); }}});
}

void run(int blocks, int rounds) {
    std::printf("{\"benchmarks\": [\n");
    measureLoading(blocks);
    for (const Access& access : accesses()) measureAccess(access, blocks, rounds);
    std::printf("{\"name\": \"\"}]}\n");
}

}  // namespace
}  // namespace wrenlink::bench

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    try {
        wrenlink::bench::run(std::atoi(argv[1]), std::atoi(argv[2]));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "exchange_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
