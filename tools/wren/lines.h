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

// What a text file says, without the mark that tells its encoding: in UTF-8, or in UTF-16 as some
// programs of Windows write it, of which '?' stands for all that is not ASCII.
std::string textOf(std::string_view contents);

// The lines of a text file that hold more than blanks, without the blanks around them. A line ends
// with LF or CR LF.
class Lines {
   public:
    explicit Lines(std::string_view contents);
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;

    auto begin() const noexcept { return lines_.begin(); }
    auto end() const noexcept { return lines_.end(); }

   private:
    const std::string text_;
    std::vector<Line> lines_;  // which point into it
};

// The words of a line, which blanks part.
std::vector<std::string_view> wordsOf(std::string_view line);

// As much of a text, in quotes, as an error message can show.
std::string quoted(std::string_view text);

}  // namespace wren

#endif
