#include "arguments.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "number.h"

namespace wren {

namespace {

std::vector<std::string> formatNames() {
    std::vector<std::string> names;
    for (const ImageFormat& format : imageFormats()) names.emplace_back(format.name);
    return names;
}

// The value is one of the words given.
CLI::Validator oneOf(std::vector<std::string> words) {
    return {[words = std::move(words)](std::string& text) {
                if (std::find(words.begin(), words.end(), text) != words.end())
                    return std::string();
                return fmt::format("'{}' is none of {}", text, fmt::join(words, ", "));
            },
            ""};
}

}  // namespace

CLI::Validator wholeNumberIn(std::uint64_t lowest, std::uint64_t highest) {
    return {[=](std::string& text) {
                const auto number = wholeNumber(text);
                if (!number || *number < lowest || *number > highest)
                    return fmt::format("'{}' is not a number from {} to {} (decimal or 0x...)",
                                       text, lowest, highest);
                text = std::to_string(*number);
                return std::string();
            },
            ""};
}

CLI::Validator secondsValidator(bool orNone) {
    return {[orNone](std::string& text) {
                constexpr double kDay = 86400;
                const auto seconds = decimalNumber(text);
                const bool good = seconds && (orNone ? *seconds >= 0 : *seconds > 0);
                if (good && *seconds <= kDay) return std::string();
                return fmt::format("'{}' is not a number of seconds{}", text,
                                   orNone ? "" : " above 0");
            },
            ""};
}

CLI::Validator flagAsOne() {
    return {[](std::string& text) {
                if (text == "true") text = "1";
                return std::string();
            },
            ""};
}

void addWatch(CLI::App* command, const char* purpose, std::optional<double>& seconds) {
    command->add_flag("--watch")
        ->description(purpose)
        ->transform(flagAsOne())
        ->check(secondsValidator())
        ->each([&seconds](const std::string& text) { seconds = decimalNumber(text); })
        ->type_name("[=SECONDS]");
}

CLI::Option* addAddress(CLI::App* command, std::optional<std::uint32_t>& address) {
    return command->add_option("ADDR", address, "First word, 0 to 0xffff")
        ->transform(wholeNumberIn(0, kMemoryWords - 1))
        ->type_name("");
}

CLI::Option* addWords(CLI::App* command, const char* name, std::vector<std::uint16_t>& words,
                      const char* purpose) {
    return command->add_option(name, words, purpose)
        ->transform(wholeNumberIn(0, 0xFFFF))
        ->type_name("");
}

CLI::Option* addCount(CLI::App* command, std::optional<std::uint32_t>& count) {
    return command->add_option("COUNT", count, "Number of words")
        ->transform(wholeNumberIn(1, kMemoryWords))
        ->type_name("");
}

void addProgress(CLI::App* app, ProgressForm& form) {
    static const std::vector<std::string> kForms{"bar", "lines", "json", "none"};
    app->add_option_function<std::string>(
           "--progress",
           [&form](const std::string& name) {
               form = static_cast<ProgressForm>(std::ranges::find(kForms, name) - kForms.begin());
           },
           "How to tell on standard error how far a transfer is: bar (usual, on a terminal alone), "
           "lines, json or none")
        ->transform(oneOf(kForms))
        ->type_name("FORM");
}

void addFormat(CLI::App* command, FormatChoice& format) {
    command
        ->add_option("--format", format.name,
                     "raw, hex (Intel HEX) or text; else told by the file's name")
        ->transform(oneOf(formatNames()))
        ->type_name("FORMAT");
    command
        ->add_option_function<std::string>(
            "--endian",
            [&format](const std::string& name) {
                format.endian = name == "big" ? Endian::big : Endian::little;
            },
            "Which byte of a word is first in a file: little (usual) or big")
        ->transform(oneOf({"little", "big"}))
        ->type_name("ORDER");
}

}  // namespace wren
