// The accesses to an adapter that are measured both through the library and bare.
#ifndef WRENLINK_BENCH_EXCHANGES_H
#define WRENLINK_BENCH_EXCHANGES_H

#include <cstdint>
#include <vector>

#include "bench/bare_exchange.h"
#include "bench/stream.h"

namespace wrenlink::bench {

struct Access {
    const char* name;
    std::uint32_t type;
    std::uint32_t count;        // of words, from address 0 on
    std::vector<Frame> frames;  // the same, bare
    unsigned jobs;              // for a turn
};

std::vector<Access> accesses();

// Carries an access out through the library, on the adapter of one port.
class ThroughLibrary {
   public:
    ThroughLibrary(const Access& access, unsigned port);
    void run() { stream_.run(actions_); }

   private:
    const Stream stream_;
    Words words_;
    Actions actions_;
};

// Carries an access out with bare exchanges, with the adapter that is so many behind the first.
class Bare {
   public:
    Bare(const Access& access, std::size_t adapter, Guards guards = Guards::none)
        : adapter_(adapterPaths().at(adapter), guards), frames_(access.frames) {}
    void run() {
        for (const Frame& frame : frames_) adapter_.run(frame);
    }

   private:
    BareExchange adapter_;
    const std::vector<Frame> frames_;
};

}  // namespace wrenlink::bench

#endif
