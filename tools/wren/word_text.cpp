#include "word_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "lines.h"
#include "number.h"

namespace wren {

namespace {

constexpr std::size_t kWordsPerLine = 8;

std::uint64_t hexNumber(const Line& line, std::string_view text, std::uint64_t highest) {
    const auto number = hexadecimalNumber(text);
    if (!number || *number > highest)
        throw FormatError(line.number, fmt::format("{} is no hexadecimal number up to {:x}",
                                                   quoted(text), highest));
    return *number;
}

void addLine(ImageBuilder& image, const Line& line, std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos)
        throw FormatError(line.number, "a line reads 'address: words'");
    const auto start = wordsOf(text.substr(0, colon));
    const auto words = wordsOf(text.substr(colon + 1));
    if (start.size() != 1 || words.empty())
        throw FormatError(line.number, "a line reads 'address: words'");
    std::uint64_t address = hexNumber(line, start.front(), kMemoryWords - 1);
    for (const std::string_view word : words) {
        if (address >= kMemoryWords)
            throw FormatError(line.number, "it goes beyond the last word, 0xffff");
        if (!image.add(address, static_cast<std::uint16_t>(hexNumber(line, word, 0xFFFF))))
            throw FormatError(line.number,
                              fmt::format("the word at 0x{:04x} is there twice", address));
        ++address;
    }
}

}  // namespace

Segments parseWordText(std::string_view contents, Endian) {
    ImageBuilder image;
    for (const Line& line : Lines(contents)) {
        const std::string_view text = line.text.substr(0, line.text.find_first_of("#|"));
        if (!wordsOf(text).empty()) addLine(image, line, text);
    }
    Segments segments = image.segments();
    if (segments.empty()) throw FormatError("it holds no words");
    return segments;
}

std::string printWordText(std::span<const Segment> segments, Endian) {
    std::string contents;
    for (const Segment& segment : segments) {
        for (std::size_t at = 0; at < segment.words.size(); at += kWordsPerLine) {
            const auto line = std::span(segment.words)
                                  .subspan(at, std::min(kWordsPerLine, segment.words.size() - at));
            contents += fmt::format("{:04x}: {:04x}\n", segment.address + at, fmt::join(line, " "));
        }
    }
    return contents;
}

}  // namespace wren
