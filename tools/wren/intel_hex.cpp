#include "intel_hex.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <optional>

#include "lines.h"

namespace wren {

namespace {

enum RecordType : std::uint8_t {
    kData = 0,
    kEnd = 1,
    kSegmentBase = 2,
    kSegmentStart = 3,
    kLinearBase = 4,
    kLinearStart = 5,
};

// Of count, address, type and checksum.
constexpr std::size_t kFrameBytes = 5;
constexpr std::size_t kBytesPerRecord = 16;
constexpr std::size_t kMemoryBytes = 2 * kMemoryWords;

std::optional<std::uint8_t> digitValue(char c) {
    if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
    if (c >= 'a' && c <= 'f') return static_cast<std::uint8_t>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
    return std::nullopt;
}

using Bytes = std::vector<std::uint8_t>;

std::uint8_t sumOf(std::span<const std::uint8_t> bytes) {
    return std::accumulate(
        bytes.begin(), bytes.end(), std::uint8_t{0},
        [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum + byte); });
}

// The bytes of a record, which add up to 0.
Bytes recordBytes(const Line& line) {
    if (line.text.front() != ':') throw FormatError(line.number, "a record starts with ':'");
    const std::string_view digits = line.text.substr(1);
    if (digits.size() % 2 != 0) throw FormatError(line.number, "the record is cut off");
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const auto high = digitValue(digits[i]);
        const auto low = digitValue(digits[i + 1]);
        if (!high || !low) throw FormatError(line.number, "a record is hexadecimal digits");
        bytes.push_back(static_cast<std::uint8_t>(*high << 4 | *low));
    }
    if (bytes.size() < kFrameBytes || bytes.size() != kFrameBytes + bytes[0])
        throw FormatError(line.number, "the record is not as long as it says");
    if (sumOf(bytes) != 0) throw FormatError(line.number, "the record's checksum is wrong");
    return bytes;
}

// The memory's bytes as the records fill them.
class ByteImage {
   public:
    void take(const Line& line) {
        if (ended_) throw FormatError(line.number, "the file goes on behind its end record");
        const Bytes record = recordBytes(line);
        const std::uint32_t offset = std::uint32_t{record[1]} << 8 | record[2];
        const auto data = std::span(record).subspan(4, record[0]);
        switch (record[3]) {
            case kData:
                return addData(line.number, offset, data);
            case kEnd:
                ended_ = true;
                return;
            case kSegmentBase:
                base_ = baseOf(line.number, data) << 4;
                return;
            case kLinearBase:
                base_ = baseOf(line.number, data) << 16;
                return;
            case kSegmentStart:
            case kLinearStart:
                return;
            default:
                throw FormatError(line.number, fmt::format("no record type {:02x}", record[3]));
        }
    }

    Segments segments(Endian endian) const {
        if (!ended_) throw FormatError("it has no end record, so it may be cut off");
        ImageBuilder image;
        for (std::uint32_t at = 0; at < kMemoryBytes; at += 2) {
            if (!bytes_[at] && !bytes_[at + 1]) continue;
            if (!bytes_[at] || !bytes_[at + 1])
                throw FormatError(
                    fmt::format("it has one byte alone of the word at 0x{:04x}", at / 2));
            image.add(at / 2, wordOf({*bytes_[at], *bytes_[at + 1]}, endian));
        }
        return image.segments();
    }

   private:
    static std::uint32_t baseOf(std::size_t line, std::span<const std::uint8_t> data) {
        if (data.size() != 2) throw FormatError(line, "a base address has two bytes");
        return std::uint32_t{data[0]} << 8 | data[1];
    }

    void addData(std::size_t line, std::uint32_t offset, std::span<const std::uint8_t> data) {
        std::size_t at = std::size_t{base_} + offset;
        for (const std::uint8_t byte : data) {
            if (at >= kMemoryBytes) throw FormatError(line, "it goes beyond the last word, 0xffff");
            if (bytes_[at])
                throw FormatError(line, fmt::format("the word at 0x{:04x} is there twice", at / 2));
            bytes_[at++] = byte;
        }
    }

    using MaybeBytes = std::vector<std::optional<std::uint8_t>>;

    MaybeBytes bytes_ = MaybeBytes(kMemoryBytes);
    std::uint32_t base_ = 0;
    bool ended_ = false;
};

std::string record(std::uint32_t offset, RecordType type, std::span<const std::uint8_t> data) {
    Bytes bytes{static_cast<std::uint8_t>(data.size()), static_cast<std::uint8_t>(offset >> 8),
                static_cast<std::uint8_t>(offset), type};
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.push_back(static_cast<std::uint8_t>(-sumOf(bytes)));
    std::string line = ":";
    for (const std::uint8_t byte : bytes) line += fmt::format("{:02X}", byte);
    return line + '\n';
}

}  // namespace

Segments parseIntelHex(std::string_view contents, Endian endian) {
    ByteImage image;
    for (const Line& line : Lines(contents)) image.take(line);
    Segments segments = image.segments(endian);
    if (segments.empty()) throw FormatError("it holds no words");
    return segments;
}

std::string printIntelHex(std::span<const Segment> segments, Endian endian) {
    constexpr std::size_t kWordsPerRecord = kBytesPerRecord / 2;
    std::string contents;
    std::uint32_t base = 0;
    for (const Segment& segment : segments) {
        for (std::size_t done = 0; done < segment.words.size();) {
            const std::uint32_t address = 2 * (segment.address + static_cast<std::uint32_t>(done));
            if (address >> 16 != base) {
                base = address >> 16;
                contents += record(0, kLinearBase,
                                   std::array{static_cast<std::uint8_t>(base >> 8),
                                              static_cast<std::uint8_t>(base)});
            }
            // A record must not run over the end of the 64 KiB that its base gives it.
            const std::size_t room = (0x10000 - (address & 0xFFFF)) / 2;
            const std::size_t count =
                std::min({kWordsPerRecord, room, segment.words.size() - done});
            Bytes data;
            for (const std::uint16_t word : std::span(segment.words).subspan(done, count)) {
                const BytePair bytes = bytesOf(word, endian);
                data.insert(data.end(), {bytes.first, bytes.second});
            }
            contents += record(address & 0xFFFF, kData, data);
            done += count;
        }
    }
    return contents + record(0, kEnd, {});
}

}  // namespace wren
