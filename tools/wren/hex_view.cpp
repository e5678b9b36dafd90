#include "hex_view.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace wren {

namespace {

constexpr std::size_t kHexColumns = kWordsPerLine * 5 - 1;

char shown(unsigned byte) { return byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.'; }

std::string textOf(std::span<const std::uint16_t> words) {
    std::string text;
    for (const std::uint16_t word : words) {
        text += shown(word & 0xFFu);
        text += shown(word >> 8);
    }
    return text;
}

// Calls work(offset, line) for each line of words.
template <class Work>
void forEachLine(std::span<const std::uint16_t> words, Work work) {
    for (std::size_t at = 0; at < words.size(); at += kWordsPerLine)
        work(at, words.subspan(at, std::min(kWordsPerLine, words.size() - at)));
}

}  // namespace

std::string hexView(std::uint32_t address, std::span<const std::uint16_t> words) {
    std::string view;
    forEachLine(words, [&](std::size_t at, std::span<const std::uint16_t> line) {
        const std::string hex = fmt::format("{:04x}", fmt::join(line, " "));
        view +=
            fmt::format("{:04x}:  {:<{}}  |{}|\n", address + at, hex, kHexColumns, textOf(line));
    });
    return view;
}

std::string wordList(std::span<const std::uint16_t> words) {
    std::string list;
    forEachLine(words, [&](std::size_t, std::span<const std::uint16_t> line) {
        list += fmt::format("0x{:04x}\n", fmt::join(line, " 0x"));
    });
    return list;
}

}  // namespace wren
