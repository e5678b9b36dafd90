#include "settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "clocks.h"
#include "failure.h"
#include "number.h"

namespace wren {

namespace {

// What a value is; of a variable that can only be read, nothing is said.
enum class Kind { other, whole, steps, clock, mode };

struct Variable {
    std::string_view name;
    bool readable;
    Kind kind;
    double lowest, highest;  // of a number
};

constexpr double kNoLimit = std::numeric_limits<double>::infinity();

constexpr std::array kVariables{
    Variable{"SPIPORT", true, Kind::other, 0, 0},  // --port names the adapter
    Variable{"QUILLMODE", false, Kind::mode, 0, 0},
    Variable{"SPI_DELAY", true, Kind::steps, 0, 0xFFFE},
    Variable{"SPICLOCK", true, Kind::clock, 0.1211, kNoLimit},
    Variable{"SPIMUL", true, Kind::whole, 0, 16},
    Variable{"SPICMDBITS", true, Kind::whole, 0, 0xFFFF},
    Variable{"SPICMDREADBITS", true, Kind::whole, 0, 0xFFFF},
    Variable{"SPICMDWRITEBITS", true, Kind::whole, 0, 0xFFFF},
    Variable{"SPIMAXCLOCK", true, Kind::clock, 1, kNoLimit},
    Variable{"QUILLVERSION", true, Kind::other, 0, 0},
    Variable{"MUTEXNAME", true, Kind::other, 0, 0},
};

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
                  fmt::format("no {} '{}'; {}", what, text, choicesFor(upper, candidates)));
}

const Variable& variableOf(std::string_view name) {
    static constexpr Variable kUnknown{"", false, Kind::other, 0, 0};
    const auto* found = std::ranges::find(kVariables, name, &Variable::name);
    return found != kVariables.end() ? *found : kUnknown;
}

template <class Wanted>
std::vector<std::string_view> namesOf(Wanted wanted) {
    std::vector<std::string_view> names;
    for (const Variable& variable : kVariables)
        if (std::invoke(wanted, variable)) names.push_back(variable.name);
    return names;
}

std::string_view unitOf(const Variable& variable) {
    return variable.kind == Kind::clock ? " kHz" : variable.kind == Kind::steps ? " steps" : "";
}

std::string expectation(const Variable& variable) {
    if (variable.kind == Kind::clock)
        return fmt::format("a number from {} on, in kHz", variable.lowest);
    return fmt::format("a whole number, 0 to {:.0f}", variable.highest);
}

// The text that makes the library see the number that the user means, behind which its unit may
// stand.
std::optional<std::string> libraryText(const Variable& variable, std::string_view value) {
    const std::string_view unit = unitOf(variable);
    if (value.ends_with(unit)) value.remove_suffix(unit.size());
    const auto whole = wholeNumber(value);
    const std::string text = whole ? std::to_string(*whole) : std::string(value);
    const auto number = whole || variable.kind == Kind::clock ? decimalNumber(text) : std::nullopt;
    const bool good = number && *number >= variable.lowest && *number <= variable.highest;
    return good ? std::optional(text) : std::nullopt;
}

}  // namespace

Setting makeSetting(std::string_view name, std::string_view value) {
    const auto isSettable = [](const Variable& each) { return each.kind != Kind::other; };
    const Variable& variable = variableOf(oneOf(namesOf(isSettable), name, "variable to set"));
    const auto text = variable.kind == Kind::mode ? oneOf(kModes, value, "interface mode")
                                                  : libraryText(variable, value);
    if (text) return {std::string(variable.name), *text};
    throw Failure(ExitCode::usage, fmt::format("{} takes {}, not '{}'", variable.name,
                                               expectation(variable), value));
}

Setting parseSetting(std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos)
        throw Failure(ExitCode::usage, fmt::format("a setting reads NAME=VALUE, not '{}'", text));
    return makeSetting(text.substr(0, equals), text.substr(equals + 1));
}

std::string readableVariable(std::string_view name) {
    return oneOf(namesOf(&Variable::readable), name, "variable to read");
}

std::vector<std::string> readableVariables() {
    const auto names = namesOf(&Variable::readable);
    return {names.begin(), names.end()};
}

bool isReadable(std::string_view name) noexcept { return variableOf(name).readable; }

std::string shownValue(std::string_view name, const std::string& value) {
    const Variable& variable = variableOf(name);
    const auto clock = variable.kind == Kind::clock ? decimalNumber(value) : std::nullopt;
    return clock ? clockText(*clock) : fmt::format("{}{}", value, unitOf(variable));
}

std::string chipCommand(std::string_view name) { return oneOf(kChipCommands, name, "command"); }

}  // namespace wren
