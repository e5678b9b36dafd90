#include "bench/exchanges.h"

namespace wrenlink::bench {

std::vector<Access> accesses() {
    return {
        {"read1", SpiAction::Read, 1, {readFrame(0, 1)}, 20},
        {"read505", SpiAction::Read, 505, {readFrame(0, 505)}, 20},
        {"read_memory", SpiAction::Read, kMemoryWords, wholeMemoryReads(), 1},
        {"write_memory", SpiAction::Write, kMemoryWords, wholeMemoryWrites(), 1},
    };
}

ThroughLibrary::ThroughLibrary(const Access& access, unsigned port)
    : stream_(port), words_(access.count), actions_(accessesToAll(access.type, words_)) {
    run();  // the adapter knows its settings from here on
}

}  // namespace wrenlink::bench
