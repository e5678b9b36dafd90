#include "script.h"

#include <fmt/format.h>

#include <span>

#include "failure.h"
#include "image.h"
#include "lines.h"
#include "number.h"

namespace wren {

namespace {

// The most words that one action of a sequence can carry.
constexpr std::uint64_t kMostActionWords = 0xFFFF;

using Words = std::span<const std::string_view>;

std::uint64_t numberIn(std::string_view text, std::uint64_t lowest, std::uint64_t highest) {
    const auto number = wholeNumber(text);
    if (!number || *number < lowest || *number > highest)
        throw Failure(ExitCode::failed,
                      fmt::format("{} is not a number from {} to {} (decimal or 0x...)",
                                  quoted(text), lowest, highest));
    return *number;
}

void require(bool good, const char* form) {
    if (!good) throw Failure(ExitCode::failed, fmt::format("the line reads '{}'", form));
}

std::uint32_t addressIn(std::string_view text) {
    return static_cast<std::uint32_t>(numberIn(text, 0, kMemoryWords - 1));
}

ScriptAction readAction(Words arguments) {
    require(arguments.size() == 2, "read ADDR COUNT");
    const Region region =
        makeRegion(addressIn(arguments[0]), numberIn(arguments[1], 1, kMostActionWords));
    ScriptAction action;
    action.segment = {region.address, std::vector<std::uint16_t>(region.count)};
    return action;
}

ScriptAction writeAction(Words arguments) {
    require(arguments.size() >= 2, "write ADDR WORDS...");
    ScriptAction action{ActionKind::write, 0, {addressIn(arguments[0]), {}}, {}};
    for (const std::string_view word : arguments.subspan(1))
        action.segment.words.push_back(static_cast<std::uint16_t>(numberIn(word, 0, 0xFFFF)));
    makeRegion(action.segment.address, action.segment.words.size());
    return action;
}

ScriptAction setAction(Words arguments) {
    require(arguments.size() == 1, "set NAME=VALUE");
    return {ActionKind::set, 0, {}, parseSetting(arguments[0])};
}

constexpr struct {
    std::string_view name;
    ScriptAction (*parse)(Words arguments);
} kActions[] = {{"read", readAction}, {"write", writeAction}, {"set", setAction}};

ScriptAction parseAction(Words words) {
    for (const auto& action : kActions)
        if (action.name == words.front()) return action.parse(words.subspan(1));
    throw Failure(ExitCode::failed,
                  fmt::format("no action {}; there are read, write, set", quoted(words.front())));
}

}  // namespace

std::vector<ScriptAction> parseScript(std::string_view text) {
    std::vector<ScriptAction> actions;
    for (const Line& line : Lines(text)) {
        const auto words = wordsOf(line.text.substr(0, line.text.find('#')));
        if (words.empty()) continue;
        try {
            actions.push_back(parseAction(words));
        } catch (const Failure& failure) {
            throw Failure(ExitCode::failed,
                          fmt::format("line {}: {}", line.number, failure.what()));
        }
        actions.back().line = line.number;
    }
    if (actions.empty()) throw Failure(ExitCode::failed, "there are no actions in it");
    return actions;
}

}  // namespace wren
