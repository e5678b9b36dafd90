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

// The columns of the terminal behind standard error; 80 when it does not tell.
unsigned columns() noexcept;

// Writes to standard error. That nobody takes it is no failure: there is nowhere else to say so.
void tell(std::string_view text) noexcept;

// Wipes the line of standard error that the cursor stands in, such as a progress bar; nothing when
// no person watches.
void clearLine() noexcept;

enum class Style { error, changed };

// The text in a style; unchanged where no person watches the stream, and where NO_COLOR is set.
std::string styled(std::FILE* stream, Style style, std::string_view text);

}  // namespace wren::terminal

#endif
