#include "lines.h"

#include <algorithm>

namespace wren {

namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

}  // namespace

std::vector<Line> linesOf(std::string_view text) {
    std::vector<Line> lines;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        const std::size_t first = line.find_first_not_of(kBlanks);
        if (first != std::string_view::npos)
            lines.push_back(
                {number, line.substr(first, line.find_last_not_of(kBlanks) - first + 1)});
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

std::vector<std::string_view> wordsOf(std::string_view line) {
    std::vector<std::string_view> words;
    for (std::size_t at = line.find_first_not_of(kBlanks); at != std::string_view::npos;) {
        const std::size_t end = std::min(line.find_first_of(kBlanks, at), line.size());
        words.push_back(line.substr(at, end - at));
        at = line.find_first_not_of(kBlanks, end);
    }
    return words;
}

std::string quoted(std::string_view text) {
    constexpr std::size_t kMost = 40;
    const std::string shown(text.substr(0, kMost));
    return "'" + shown + (shown.size() < text.size() ? "...'" : "'");
}

}  // namespace wren
