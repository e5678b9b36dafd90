// Regions of chip memory.
//
// Threads: pure functions.
#ifndef WREN_REGION_H
#define WREN_REGION_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "image.h"

namespace wren {

// Words of chip memory; none beyond the last one.
struct Region {
    std::uint32_t address = 0;
    std::uint32_t count = kMemoryWords;
};

// Reads "START:COUNT", or "all"; throws a usage Failure.
Region parseRegion(std::string_view text);

// Throws a usage Failure when there are none, or they reach beyond the last word.
Region makeRegion(std::uint32_t address, std::size_t count);

// "0x0100 to 0x0102, 0x0200".
std::string addressesOf(std::span<const Region> regions);

// "1 word", "2 words".
std::string countOf(std::size_t words);

}  // namespace wren

#endif
