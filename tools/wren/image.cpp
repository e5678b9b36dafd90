#include "image.h"

namespace wren {

std::size_t wordCount(std::span<const Segment> segments) noexcept {
    std::size_t count = 0;
    for (const Segment& segment : segments) count += segment.words.size();
    return count;
}

bool ImageBuilder::add(std::uint64_t address, std::uint16_t word) {
    if (address >= kMemoryWords || held_[address]) return false;
    words_[address] = word;
    held_[address] = true;
    return true;
}

Segments ImageBuilder::segments() const {
    Segments segments;
    bool continues = false;
    for (std::uint32_t address = 0; address < kMemoryWords; ++address) {
        if (held_[address]) {
            if (!continues) segments.push_back({address, {}});
            segments.back().words.push_back(words_[address]);
        }
        continues = held_[address];
    }
    return segments;
}

}  // namespace wren
