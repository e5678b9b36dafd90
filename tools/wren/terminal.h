// What the tool asks about the terminal behind standard error.
//
// Threads: may be called from any.
#ifndef WREN_TERMINAL_H
#define WREN_TERMINAL_H

namespace wren::terminal {

// Whether a person watches standard error.
bool onStandardError() noexcept;

// The columns of that terminal; 80 when it does not tell.
unsigned columns() noexcept;

}  // namespace wren::terminal

#endif
