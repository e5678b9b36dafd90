// Numbers as users write them: whole ones in decimal or as 0x..., and decimal fractions. The whole
// text must be the number; a leading 0 does not mean octal; the locale does not matter.
//
// Names to choose from, for users who wrote one that is not there.
//
// Threads: pure functions.
#ifndef WREN_NUMBER_H
#define WREN_NUMBER_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace wren {

// An unsigned number; nothing when the text is none, or above 64 bits.
std::optional<std::uint64_t> wholeNumber(std::string_view text) noexcept;

// The same in hexadecimal, with or without 0x.
std::optional<std::uint64_t> hexadecimalNumber(std::string_view text) noexcept;

// A finite number, with or without a fraction or an exponent.
std::optional<double> decimalNumber(std::string_view text) noexcept;

// "did you mean read?", or else "there are read, write".
std::string choicesFor(std::string_view word, std::span<const std::string_view> names);

}  // namespace wren

#endif
