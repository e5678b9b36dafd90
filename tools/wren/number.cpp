#include "number.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <system_error>
#include <utility>
#include <vector>

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

// How many letters have to change, come or go to make one word of the other.
std::size_t distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char letter : from) {
        std::size_t diagonal = std::exchange(row[0], row[0] + 1);
        for (std::size_t i = 0; i < to.size(); ++i) {
            const std::size_t changed = diagonal + (letter == to[i] ? 0 : 1);
            diagonal = std::exchange(row[i + 1], std::min({row[i] + 1, row[i + 1] + 1, changed}));
        }
    }
    return row.back();
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

std::string choicesFor(std::string_view word, std::span<const std::string_view> names) {
    const auto distanceTo = [word](std::string_view name) { return distance(word, name); };
    const std::string_view nearest = *std::ranges::min_element(names, {}, distanceTo);
    if (distanceTo(nearest) <= std::max<std::size_t>(1, word.size() / 2))
        return fmt::format("did you mean {}?", nearest);
    return fmt::format("there are {}", fmt::join(names, ", "));
}

}  // namespace wren
