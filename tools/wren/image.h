// Chip memory: regions of it, and what it holds or shall hold, words at addresses with or without
// gaps.
//
// Threads: plain values and pure functions.
#ifndef WREN_IMAGE_H
#define WREN_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wren {

inline constexpr std::size_t kMemoryWords = 0x10000;

// Words of chip memory; none beyond the last one.
struct Region {
    std::uint32_t address = 0;
    std::uint32_t count = 0;
};

// Throws a usage Failure when there are none, or they reach beyond the last word.
Region makeRegion(std::uint32_t address, std::size_t count);

// "0x0100 to 0x0102, 0x0200".
std::string addressesOf(std::span<const Region> regions);

// "1 word", "2 words".
std::string countOf(std::size_t words);

// Words that follow each other from an address on.
struct Segment {
    std::uint32_t address = 0;
    std::vector<std::uint16_t> words;
};

// In the order of their addresses, and apart from each other.
using Segments = std::vector<Segment>;

std::size_t wordCount(std::span<const Segment> segments) noexcept;

// The CRC-32 of the words' bytes, the low one of each word first, as eight hexadecimal digits: what
// other tools make of a raw file of these words.
std::string crcOf(std::span<const Segment> segments);

// The words of some segments that are not the same in others, which have the same places.
Segments differing(const Segments& segments, const Segments& others);

// Gathers words in any order.
class ImageBuilder {
   public:
    ImageBuilder() : words_(kMemoryWords), held_(kMemoryWords) {}

    // False when the address is beyond the memory or holds a word already.
    bool add(std::uint64_t address, std::uint16_t word);
    Segments segments() const;

   private:
    std::vector<std::uint16_t> words_;
    std::vector<bool> held_;
};

}  // namespace wren

#endif
