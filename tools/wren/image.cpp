#include "image.h"

#include <fmt/format.h>
#include <zlib.h>

namespace wren {

std::size_t wordCount(std::span<const Segment> segments) noexcept {
    std::size_t count = 0;
    for (const Segment& segment : segments) count += segment.words.size();
    return count;
}

std::string crcOf(std::span<const Segment> segments) {
    uLong crc = ::crc32(0, nullptr, 0);
    for (const Segment& segment : segments) {
        for (const std::uint16_t word : segment.words) {
            const Bytef bytes[] = {static_cast<Bytef>(word & 0xFF), static_cast<Bytef>(word >> 8)};
            crc = ::crc32(crc, bytes, sizeof bytes);
        }
    }
    return fmt::format("{:08x}", crc);
}

Segments differing(const Segments& segments, const Segments& others) {
    ImageBuilder different;
    for (std::size_t i = 0; i < segments.size(); ++i)
        for (std::size_t at = 0; at < segments[i].words.size(); ++at)
            if (segments[i].words[at] != others[i].words[at])
                different.add(segments[i].address + at, segments[i].words[at]);
    return different.segments();
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
