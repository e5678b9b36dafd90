// Transfers of whole images: cut into chunks that one action can carry, with progress told. Ctrl-C
// ends them between two chunks.
//
// Threads: as the Adapter's. Failures are thrown as Failure and tell how far the transfer got; the
// chunks before stay done.
#ifndef WREN_TRANSFER_H
#define WREN_TRANSFER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "adapter.h"
#include "image.h"

namespace wren {

// A word of chip memory that is not what it should be.
struct Difference {
    std::uint32_t address;
    std::uint16_t expected;
    std::uint16_t found;
};

// What a comparison found: how many words differ, and the first of them.
struct Comparison {
    std::size_t differing = 0;
    std::vector<Difference> first;
};

// Fills the segments' words.
void readSegments(Adapter& adapter, std::span<Segment> segments);
void writeSegments(Adapter& adapter, std::span<const Segment> segments);
// Reads as many words as are expected, and compares; lists at most mostListed differences.
Comparison compareSegments(Adapter& adapter, std::span<const Segment> expected,
                           std::size_t mostListed);

}  // namespace wren

#endif
