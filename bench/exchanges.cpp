#include "bench/exchanges.h"

namespace wrenlink::bench {

std::vector<Access> accesses() {
    return {
        {"read1", SpiAction::Read, 1, {readFrame(0, 1)}},
        {"read505", SpiAction::Read, 505, {readFrame(0, 505)}},
        {"read_memory", SpiAction::Read, kMemoryWords, wholeMemoryReads()},
        {"write_memory", SpiAction::Write, kMemoryWords, wholeMemoryWrites()},
    };
}

ThroughLibrary::ThroughLibrary(const Access& access, unsigned port)
    : stream_(port), words_(access.count), actions_(accessesToAll(access.type, words_)) {
    run();  // the adapter knows its settings from here on
}

}  // namespace wrenlink::bench
