// The terminal behind standard error.
//
// Threads: may be called from any.
#ifndef WREN_TERMINAL_H
#define WREN_TERMINAL_H

namespace wren::terminal {

// Whether a person watches standard error.
bool onStandardError() noexcept;

// The columns of that terminal; 80 when it does not tell.
unsigned columns() noexcept;

// Wipes the line that the cursor stands in, such as a progress bar; nothing when no person watches.
void clearLine() noexcept;

}  // namespace wren::terminal

#endif
