// Chip words as text.
//
// Threads: pure functions.
#ifndef WREN_HEX_VIEW_H
#define WREN_HEX_VIEW_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace wren {

inline constexpr std::size_t kWordsPerLine = 8;

// Lines of 8 words: address, words, and the bytes as text in the order of a word file, the low byte
// of each word first.
std::string hexView(std::uint32_t address, std::span<const std::uint16_t> words);

// Lines of 8 words, each written as the tool reads it: 0x1234.
std::string wordList(std::span<const std::uint16_t> words);

}  // namespace wren

#endif
