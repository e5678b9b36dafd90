// The terminals behind standard output and standard error.
//
// Threads: may be called from any.
#ifndef WREN_TERMINAL_H
#define WREN_TERMINAL_H

#include <cstdio>
#include <string>
#include <string_view>

namespace wren::terminal {

// Whether a person watches a standard stream.
bool isTerminal(std::FILE* stream) noexcept;

// Whether that terminal takes control sequences, such as those for colours.
bool takesSequences(std::FILE* stream) noexcept;

// Writes a text in UTF-8 to a standard stream, in any language also on a console that has a code
// page; false with errno on failure.
bool put(std::FILE* stream, std::string_view text);

// The size of the terminal behind standard error; the usual one when it does not tell.
struct Size {
    unsigned columns = 80;
    unsigned rows = 24;
};
Size size() noexcept;

// Writes to standard error, above the status lines. That nobody takes it is no failure: there is
// nowhere else to say so.
void tell(std::string_view text) noexcept;

// A line at the bottom of standard error that changes as work goes on, for a person who waits;
// those of several stand below each other, in the order in which they were made. There is none
// where no person watches, and the last one alone where the terminal takes no control sequences.
class StatusLine {
   public:
    StatusLine();
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;
    ~StatusLine();

    // Shows a text, cut to the terminal's width; an empty one takes no line.
    void show(std::string text) noexcept;
};

enum class Style { error, changed };

// The text in a style; unchanged where no person watches the stream, and where NO_COLOR is set.
std::string styled(std::FILE* stream, Style style, std::string_view text);

}  // namespace wren::terminal

#endif
