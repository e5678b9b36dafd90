#include "hex_view.h"

#include <fmt/format.h>

#include <algorithm>

#include "terminal.h"

namespace wren {

namespace {

constexpr std::size_t kWordColumns = 5;

char shown(unsigned byte) { return byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.'; }

std::string textOf(std::span<const std::uint16_t> words) {
    std::string text;
    for (const std::uint16_t word : words) {
        text += shown(word & 0xFFu);
        text += shown(word >> 8);
    }
    return text;
}

}  // namespace

std::string hexLine(std::uint32_t address, std::span<const std::uint16_t> words,
                    std::span<const std::uint16_t> before) {
    std::string line = fmt::format("{:04x}:  ", address);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string word = fmt::format("{:04x}", words[i]);
        const bool changed = i < before.size() && words[i] != before[i];
        line +=
            changed ? terminal::styled(stdout, terminal::Style::changed, word) + '*' : word + ' ';
    }
    const std::size_t blanks = (kWordsPerLine - words.size()) * kWordColumns;
    return line + fmt::format("{:{}} |{}|\n", "", blanks, textOf(words));
}

std::string hexView(const Segment& segment) {
    std::string view;
    const std::span words(segment.words);
    for (std::size_t at = 0; at < words.size(); at += kWordsPerLine)
        view += hexLine(segment.address + static_cast<std::uint32_t>(at),
                        words.subspan(at, std::min(kWordsPerLine, words.size() - at)));
    return view;
}

}  // namespace wren
