#include "image.h"

#include <fmt/format.h>
#include <zlib.h>

#include "failure.h"
#include "number.h"

namespace wren {

std::size_t wordCount(std::span<const Segment> segments) noexcept {
    std::size_t count = 0;
    for (const Segment& segment : segments) count += segment.words.size();
    return count;
}

std::string crcOf(std::span<const Segment> segments) {
    uLong crc = ::crc32(0, nullptr, 0);
    for (const Segment& segment : segments) {
        std::vector<Bytef> bytes;
        bytes.reserve(2 * segment.words.size());
        for (const std::uint16_t word : segment.words)
            bytes.insert(bytes.end(),
                         {static_cast<Bytef>(word & 0xFF), static_cast<Bytef>(word >> 8)});
        crc = ::crc32_z(crc, bytes.data(), bytes.size());
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

std::string countOf(std::size_t words) {
    return fmt::format("{} word{}", words, words == 1 ? "" : "s");
}

std::string addressesOf(std::span<const Region> regions) {
    std::string text;
    for (const Region& region : regions) {
        text += fmt::format("{}0x{:04x}", text.empty() ? "" : ", ", region.address);
        if (region.count > 1)
            text += fmt::format(" to 0x{:04x}", region.address + region.count - 1);
    }
    return text;
}

Region makeRegion(std::uint32_t address, std::size_t count) {
    if (count == 0) throw Failure(ExitCode::usage, "a region has at least one word");
    if (address + count > kMemoryWords)
        throw Failure(ExitCode::usage,
                      fmt::format("{} from 0x{:04x} on would reach beyond the last word, 0xffff",
                                  countOf(count), address));
    return {address, static_cast<std::uint32_t>(count)};
}

}  // namespace wren
