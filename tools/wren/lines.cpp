#include "lines.h"

#include <algorithm>

namespace wren {

namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

}  // namespace

std::string textOf(std::string_view contents) {
    using namespace std::string_view_literals;
    if (contents.starts_with("\xEF\xBB\xBF"sv)) return std::string(contents.substr(3));
    // A text holds no zero bytes but those that UTF-16 gives to ASCII.
    const bool isBig = contents.starts_with("\xFE\xFF"sv) || contents.starts_with('\0');
    if (!isBig && !contents.starts_with("\xFF\xFE"sv) && contents.substr(0, 2).find('\0') != 1)
        return std::string(contents);
    std::string text;
    for (std::size_t i = 0; i + 1 < contents.size(); i += 2) {
        const auto first = static_cast<unsigned char>(contents[i]);
        const auto second = static_cast<unsigned char>(contents[i + 1]);
        const int unit = isBig ? first << 8 | second : second << 8 | first;
        if (unit != 0xFEFF) text += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return text;
}

Lines::Lines(std::string_view contents) : text_(textOf(contents)) {
    std::string_view text = text_;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        const std::size_t first = line.find_first_not_of(kBlanks);
        if (first != std::string_view::npos)
            lines_.push_back(
                {number, line.substr(first, line.find_last_not_of(kBlanks) - first + 1)});
        text.remove_prefix(std::min(end + 1, text.size()));
    }
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
    std::string shown(text.substr(0, kMost));
    std::ranges::replace(shown, '\0', '?');
    return "'" + shown + (shown.size() < text.size() ? "...'" : "'");
}

}  // namespace wren
