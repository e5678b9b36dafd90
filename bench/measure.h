// How Google Benchmark measures ways to do a job: each gives a counter of its name, the nanoseconds
// that one job took by the clock, and one of its name and "_processor".
#ifndef WRENLINK_BENCH_MEASURE_H
#define WRENLINK_BENCH_MEASURE_H

#include <benchmark/benchmark.h>

#include <string>

#include "bench/turns.h"

namespace wrenlink::bench {

inline void measure(benchmark::State& state, unsigned jobs, std::vector<Way> ways) {
    Turns turns(jobs, std::move(ways));
    for (auto _ : state) turns.round();
    for (const Way& way : turns.results()) {
        state.counters[way.name] = way.clock;
        state.counters[std::string(way.name) + "_processor"] = way.processor;
    }
}

}  // namespace wrenlink::bench

#endif
