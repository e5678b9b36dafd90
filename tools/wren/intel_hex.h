// Intel HEX files. Their addresses count bytes, so the word at 0x100 is the bytes at 0x200 and
// 0x201. Record types 00, 01, 02 and 04 are understood; 03 and 05, a program's start, say nothing
// about memory.
//
// Threads: pure functions.
#ifndef WREN_INTEL_HEX_H
#define WREN_INTEL_HEX_H

#include "image_format.h"

namespace wren {

Segments parseIntelHex(std::string_view contents, Endian endian);
std::string printIntelHex(std::span<const Segment> segments, Endian endian);

}  // namespace wren

#endif
