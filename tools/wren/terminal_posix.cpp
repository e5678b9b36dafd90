#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "terminal.h"

namespace wren::terminal {

bool onStandardError() noexcept { return isatty(STDERR_FILENO) == 1; }

unsigned columns() noexcept {
    winsize size{};
    const bool told = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return told ? size.ws_col : 80;
}

void clearLine() noexcept {
    if (onStandardError()) std::fputs("\r\x1b[K", stderr);
}

}  // namespace wren::terminal
