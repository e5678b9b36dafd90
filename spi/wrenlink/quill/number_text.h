// Numbers and names in texts, read the same way on every system and in every locale: integers have
// 32 bits, decimal points are points, letters are ASCII. Pure functions; every text is
// NUL-terminated.
#ifndef WRENLINK_QUILL_NUMBER_TEXT_H
#define WRENLINK_QUILL_NUMBER_TEXT_H

#include <cstdint>

namespace wrenlink {

// A number and the first character after it; `end` is the text itself when it holds no number.
struct ParsedUnsigned {
    std::uint32_t value;
    const char* end;
};

// Reads a decimal number as strtoul does where `unsigned long` has 32 bits: white space, a sign (a
// minus negates modulo 2^32), digits. No digits give 0, overflow gives 0xFFFFFFFF.
ParsedUnsigned parseUnsigned(const char* text);

// Reads a number as strtol does in base 0 where `long` has 32 bits: decimal, hexadecimal after
// "0x", octal after "0". No digits give 0, overflow gives the nearest limit.
std::int32_t parseSigned(const char* text);

// The low 16 bits of what parseSigned reads.
std::uint16_t parseWord(const char* text);

// Reads a number as strtod does in the "C" locale. No number gives 0, overflow an infinity.
double parseDouble(const char* text);

// Compares without regard to the case of the letters A to Z. A null text equals nothing.
bool equalsIgnoringCase(const char* left, const char* right);

}  // namespace wrenlink

#endif
