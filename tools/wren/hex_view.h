// Chip words as text.
//
// Threads: pure functions.
#ifndef WREN_HEX_VIEW_H
#define WREN_HEX_VIEW_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "image.h"

namespace wren {

inline constexpr std::size_t kWordsPerLine = 8;

// A line of the view: the address, at most 8 words, and the bytes as text, the low byte of each
// word first. A word that is not as it was before bears a '*' and the looks of a changed word;
// before is empty when nothing is known.
std::string hexLine(std::uint32_t address, std::span<const std::uint16_t> words,
                    std::span<const std::uint16_t> before = {});

// The lines of all words.
std::string hexView(const Segment& segment);

}  // namespace wren

#endif
