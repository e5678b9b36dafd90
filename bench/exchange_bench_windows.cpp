// exchange_bench BLOCKS MILLISECONDS: the library against bare exchanges with the first adapter of
// the simulator's driver. Prints a line for each block: the access's name, and the nanoseconds that
// one took through the library and bare. In a block each is repeated for so many milliseconds, in
// every other block the other way round.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "bench/exchanges.h"

namespace wrenlink::bench {
namespace {

using Clock = std::chrono::steady_clock;

// Nanoseconds of one run.
template <class Way>
double measure(Way& way, Clock::duration least) {
    const Clock::time_point start = Clock::now();
    Clock::duration taken{};
    unsigned runs = 0;
    do {
        way.run();
        ++runs;
        taken = Clock::now() - start;
    } while (taken < least);
    return std::chrono::duration<double, std::nano>(taken).count() / runs;
}

void compare(const Access& access, int blocks, Clock::duration least) {
    ThroughLibrary library(access, 0);
    Bare bare(access, 0);
    for (int block = 0; block < blocks; ++block) {
        const bool libraryFirst = block % 2 == 0;
        const double first = libraryFirst ? measure(library, least) : measure(bare, least);
        const double second = libraryFirst ? measure(bare, least) : measure(library, least);
        std::printf("%s %.0f %.0f\n", access.name, libraryFirst ? first : second,
                    libraryFirst ? second : first);
    }
}

}  // namespace
}  // namespace wrenlink::bench

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const std::chrono::milliseconds least(std::atoi(argv[2]));
    try {
        for (const wrenlink::bench::Access& access : wrenlink::bench::accesses())
            wrenlink::bench::compare(access, std::atoi(argv[1]), least);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "exchange_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
