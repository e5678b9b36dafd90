#include "image_format.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>

#include "intel_hex.h"
#include "lines.h"
#include "number.h"

namespace wren {

namespace {

Segments parseRaw(std::string_view contents, Endian endian) {
    if (contents.empty()) throw FormatError("it is empty");
    if (contents.size() % 2 != 0)
        throw FormatError(fmt::format("it has {} bytes, and words have two each", contents.size()));
    Segment segment;
    for (std::size_t i = 0; i < contents.size(); i += 2)
        segment.words.push_back(wordOf(
            {static_cast<std::uint8_t>(contents[i]), static_cast<std::uint8_t>(contents[i + 1])},
            endian));
    return {std::move(segment)};
}

std::string printRaw(std::span<const Segment> segments, Endian endian) {
    std::string contents;
    contents.reserve(2 * wordCount(segments));
    for (const Segment& segment : segments) {
        for (const std::uint16_t word : segment.words) {
            const BytePair bytes = bytesOf(word, endian);
            contents += static_cast<char>(bytes.first);
            contents += static_cast<char>(bytes.second);
        }
    }
    return contents;
}

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

constexpr std::array<std::string_view, 2> kRawSuffixes{".bin", ".raw"};
constexpr std::array<std::string_view, 3> kHexSuffixes{".hex", ".ihex", ".ihx"};
constexpr std::array<std::string_view, 1> kTextSuffixes{".txt"};

constexpr std::array kFormats{
    ImageFormat{"raw", kRawSuffixes, false, parseRaw, printRaw},
    ImageFormat{"hex", kHexSuffixes, true, parseIntelHex, printIntelHex},
    ImageFormat{"text", kTextSuffixes, true, parseWordText, printWordText},
};

// How files begin that come by mistake.
constexpr struct Beginning {
    std::string_view pattern;  // '#' is a hexadecimal digit
    std::string_view format;   // that reads them
    std::string_view advice;
} kBeginnings[] = {
    {"\177ELF", "", "it is an ELF file; 'objcopy -O ihex FILE FILE.hex' makes Intel HEX of it"},
    {"S#######", "",
     "it holds S-records; 'objcopy -I srec -O ihex FILE FILE.hex' makes Intel HEX of them"},
    {":##########", "hex", "it is Intel HEX; give --format hex"},
};

bool startsLike(std::string_view contents, std::string_view pattern) {
    const auto fits = [](char c, char wanted) {
        return wanted == '#' ? hexadecimalNumber({&c, 1}).has_value() : c == wanted;
    };
    return contents.size() >= pattern.size() &&
           std::ranges::equal(contents.substr(0, pattern.size()), pattern, fits);
}

char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

FormatError::FormatError(std::size_t line, const std::string& text)
    : std::runtime_error(fmt::format("line {}: {}", line, text)) {}

std::span<const ImageFormat> imageFormats() noexcept { return kFormats; }

const ImageFormat* formatByName(std::string_view name) noexcept {
    const auto* found = std::ranges::find(kFormats, name, &ImageFormat::name);
    return found != kFormats.end() ? found : nullptr;
}

const ImageFormat* formatOfFile(std::string_view path) noexcept {
    if (path == "-") return formatByName("text");
    const std::string_view name = path.substr(path.find_last_of("/\\") + 1);  // npos + 1 is 0
    const std::size_t dot = name.rfind('.');
    if (dot == 0 || dot == std::string_view::npos) return formatByName("raw");
    for (const ImageFormat& format : kFormats)
        for (const std::string_view suffix : format.suffixes)
            if (std::ranges::equal(name.substr(dot), suffix, {}, lowerCase)) return &format;
    return nullptr;
}

std::string_view contradictionOf(const ImageFormat* format, std::string_view contents) noexcept {
    for (const Beginning& beginning : kBeginnings)
        if (startsLike(contents, beginning.pattern) &&
            (format == nullptr || format->name != beginning.format))
            return beginning.advice;
    return {};
}

BytePair bytesOf(std::uint16_t word, Endian endian) noexcept {
    const auto low = static_cast<std::uint8_t>(word & 0xFF);
    const auto high = static_cast<std::uint8_t>(word >> 8);
    return endian == Endian::little ? BytePair{low, high} : BytePair{high, low};
}

std::uint16_t wordOf(BytePair bytes, Endian endian) noexcept {
    if (endian == Endian::big) std::swap(bytes.first, bytes.second);
    return static_cast<std::uint16_t>(bytes.first | bytes.second << 8);
}

}  // namespace wren
