#include "quill/number_text.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <system_error>

namespace wrenlink {
namespace {

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// The value of a digit or letter; 36 for anything else.
unsigned digitValue(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    c = lower(c);
    return c >= 'a' && c <= 'z' ? static_cast<unsigned>(c - 'a') + 10 : 36;
}

// White space and a sign; `text` is left behind them.
bool skipToDigits(const char*& text) {
    while (isSpace(*text)) ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    return negative;
}

bool startsHexadecimal(const char* text) {
    return text[0] == '0' && lower(text[1]) == 'x' && digitValue(text[2]) < 16;
}

// Reads digits of a base; a value of 2^32 or more reads as 2^32. `text` is left behind them.
std::uint64_t readDigits(const char*& text, unsigned base) {
    constexpr std::uint64_t kTooLarge = std::uint64_t{1} << 32;
    std::uint64_t value = 0;
    for (; digitValue(*text) < base; ++text) {
        value = value * base + digitValue(*text);
        if (value > kTooLarge) value = kTooLarge;
    }
    return value;
}

// Whether digits whose value no double can hold are too large for it, rather than too small.
bool isTooLarge(const char* first, const char* last, bool hexadecimal) {
    const char mark = hexadecimal ? 'p' : 'e';
    std::int64_t digits = 0;  // before the point, or minus the zeros that follow it
    bool pastPoint = false;
    bool significant = false;
    for (; first != last && lower(*first) != mark; ++first) {
        if (*first == '.') {
            pastPoint = true;
            continue;
        }
        significant = significant || *first != '0';
        if (significant && !pastPoint) ++digits;
        if (!significant && pastPoint) --digits;
    }
    if (first == last) return digits > 0;
    ++first;
    const bool negative = *first == '-';
    if (*first == '-' || *first == '+') ++first;
    const auto exponent = static_cast<std::int64_t>(readDigits(first, 10));
    return digits * (hexadecimal ? 4 : 1) + (negative ? -exponent : exponent) > 0;
}

}  // namespace

ParsedUnsigned parseUnsigned(const char* text) {
    const char* position = text;
    const bool negative = skipToDigits(position);
    if (digitValue(*position) >= 10) return {0, text};
    const std::uint64_t value = readDigits(position, 10);
    if (value > 0xFFFFFFFF) return {0xFFFFFFFF, position};
    const auto magnitude = static_cast<std::uint32_t>(value);
    return {negative ? 0 - magnitude : magnitude, position};
}

std::int32_t parseSigned(const char* text) {
    const bool negative = skipToDigits(text);
    unsigned base = 10;
    if (startsHexadecimal(text)) {
        text += 2;
        base = 16;
    } else if (*text == '0') {
        base = 8;
    }
    using Limits = std::numeric_limits<std::int32_t>;
    const auto magnitude = static_cast<std::int64_t>(readDigits(text, base));
    const std::int64_t value = negative ? -magnitude : magnitude;
    if (value > Limits::max()) return Limits::max();
    if (value < Limits::min()) return Limits::min();
    return static_cast<std::int32_t>(value);
}

std::uint16_t parseWord(const char* text) { return static_cast<std::uint16_t>(parseSigned(text)); }

double parseDouble(const char* text) {
    const bool negative = skipToDigits(text);
    if (*text == '-') return 0;  // from_chars would take a second sign
    const bool hexadecimal =
        startsHexadecimal(text) ||
        (text[0] == '0' && lower(text[1]) == 'x' && text[2] == '.' && digitValue(text[3]) < 16);
    if (hexadecimal) text += 2;

    double value = 0;
    const auto [end, error] =
        std::from_chars(text, text + std::strlen(text), value,
                        hexadecimal ? std::chars_format::hex : std::chars_format::general);
    if (error == std::errc::result_out_of_range)
        value = isTooLarge(text, end, hexadecimal) ? std::numeric_limits<double>::infinity() : 0;
    return negative ? -value : value;
}

bool equalsIgnoringCase(const char* left, const char* right) {
    if (left == nullptr || right == nullptr) return false;
    while (*left != '\0' && lower(*left) == lower(*right)) {
        ++left;
        ++right;
    }
    return lower(*left) == lower(*right);
}

}  // namespace wrenlink
