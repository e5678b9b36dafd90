#include "number.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace wren {

namespace {

template <class T, class... Format>
std::optional<T> wholeText(std::string_view text, Format... format) noexcept {
    T value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, format...);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

bool hasPrefix(std::string_view text) noexcept {
    return text.starts_with("0x") || text.starts_with("0X");
}

}  // namespace

std::optional<std::uint64_t> wholeNumber(std::string_view text) noexcept {
    return hasPrefix(text) ? hexadecimalNumber(text) : wholeText<std::uint64_t>(text, 10);
}

std::optional<std::uint64_t> hexadecimalNumber(std::string_view text) noexcept {
    if (hasPrefix(text)) text.remove_prefix(2);
    return wholeText<std::uint64_t>(text, 16);
}

std::optional<double> decimalNumber(std::string_view text) noexcept {
    const auto value = wholeText<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

}  // namespace wren
