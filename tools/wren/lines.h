// Texts as lines.
//
// Threads: pure functions.
#ifndef WREN_LINES_H
#define WREN_LINES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace wren {

struct Line {
    std::size_t number;  // from 1
    std::string_view text;
};

// The lines of a text that hold more than blanks, without the blanks around them. They point into
// the text. A line ends with LF or CR LF.
std::vector<Line> linesOf(std::string_view text);

// The words of a line, which blanks part.
std::vector<std::string_view> wordsOf(std::string_view line);

// As much of a text, in quotes, as an error message can show.
std::string quoted(std::string_view text);

}  // namespace wren

#endif
