#include "tests/support/command_line_windows.h"

namespace wrenlink::test {
namespace {

// A backslash escapes only before a quote.
std::string quoted(const std::string& word) {
    std::string text = "\"";
    std::size_t backslashes = 0;
    for (const char character : word) {
        if (character == '"') text.append(backslashes + 1, '\\');
        backslashes = character == '\\' ? backslashes + 1 : 0;
        text.push_back(character);
    }
    return text.append(backslashes, '\\') + '"';
}

}  // namespace

std::string commandLine(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) line += (line.empty() ? "" : " ") + quoted(word);
    return line;
}

}  // namespace wrenlink::test
