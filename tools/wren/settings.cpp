#include "settings.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "failure.h"
#include "number.h"

namespace wren {

namespace {

enum class Kind { whole, positive, mode };

struct Variable {
    std::string_view name;
    Kind kind;
    std::uint64_t highest;  // of a whole number
};

constexpr std::array kSettable{
    Variable{"SPIPORT", Kind::whole, 0xFFFFFFFF},
    Variable{"QUILLMODE", Kind::mode, 0},
    Variable{"SPI_DELAY", Kind::whole, 0xFFFF},
    Variable{"SPICLOCK", Kind::positive, 0},
    Variable{"SPIMUL", Kind::whole, 16},
    Variable{"SPICMDBITS", Kind::whole, 0xFFFF},
    Variable{"SPICMDREADBITS", Kind::whole, 0xFFFF},
    Variable{"SPICMDWRITEBITS", Kind::whole, 0xFFFF},
    Variable{"SPIMAXCLOCK", Kind::positive, 0},
};

constexpr std::array<std::string_view, 10> kReadable{
    "SPIPORT",   "QUILLVERSION", "SPI_DELAY",      "SPICLOCK",        "SPIMAXCLOCK",
    "MUTEXNAME", "SPICMDBITS",   "SPICMDREADBITS", "SPICMDWRITEBITS", "SPIMUL"};

constexpr std::array<std::string_view, 2> kModes{"SPI", "JTAG"};
constexpr std::array<std::string_view, 2> kChipCommands{"DFU", "SPISLOWER"};

std::string upperCase(std::string_view text) {
    std::string upper(text);
    std::ranges::transform(upper, upper.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    return upper;
}

// The candidate that a user's text names; throws a usage Failure that lists the candidates.
std::string oneOf(std::span<const std::string_view> candidates, std::string_view text,
                  std::string_view what) {
    std::string upper = upperCase(text);
    if (std::ranges::find(candidates, upper) != candidates.end()) return upper;
    throw Failure(ExitCode::usage,
                  fmt::format("no {} '{}'; there are {}", what, text, fmt::join(candidates, ", ")));
}

// The text that makes the library see the value that the user means.
std::optional<std::string> libraryText(const Variable& variable, std::string_view value) {
    if (variable.kind == Kind::whole) {
        const auto number = wholeNumber(value);
        if (!number || *number > variable.highest) return std::nullopt;
        return std::to_string(*number);
    }
    const auto number = decimalNumber(value);
    if (!number || *number <= 0) return std::nullopt;
    return std::string(value);
}

const Variable& settableVariable(std::string_view name) {
    std::array<std::string_view, kSettable.size()> names;
    std::ranges::transform(kSettable, names.begin(), &Variable::name);
    return *std::ranges::find(kSettable, oneOf(names, name, "variable to set"), &Variable::name);
}

}  // namespace

Setting makeSetting(std::string_view name, std::string_view value) {
    const Variable& variable = settableVariable(name);
    if (variable.kind == Kind::mode)
        return {std::string(variable.name), oneOf(kModes, value, "interface mode")};
    if (auto text = libraryText(variable, value)) return {std::string(variable.name), *text};
    const std::string expected = variable.kind == Kind::whole
                                     ? fmt::format("a whole number, 0 to {}", variable.highest)
                                     : "a number above 0, in kHz";
    throw Failure(ExitCode::usage,
                  fmt::format("{} takes {}, not '{}'", variable.name, expected, value));
}

Setting parseSetting(std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        throw Failure(ExitCode::usage, fmt::format("a setting reads NAME=VALUE, not '{}'", text));
    return makeSetting(text.substr(0, equals), text.substr(equals + 1));
}

std::string readableVariable(std::string_view name) {
    return oneOf(kReadable, name, "variable to read");
}

bool isReadable(std::string_view name) noexcept {
    return std::ranges::find(kReadable, name) != kReadable.end();
}

std::string chipCommand(std::string_view name) { return oneOf(kChipCommands, name, "command"); }

}  // namespace wren
