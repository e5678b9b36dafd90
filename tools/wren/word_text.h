// Text files of chip words: lines of "address: words", all in hexadecimal with or without 0x. What
// follows '#' or '|' is a comment, so that a dump is such a file too.
//
// Threads: pure functions.
#ifndef WREN_WORD_TEXT_H
#define WREN_WORD_TEXT_H

#include "image_format.h"

namespace wren {

Segments parseWordText(std::string_view contents, Endian endian);
std::string printWordText(std::span<const Segment> segments, Endian endian);

}  // namespace wren

#endif
