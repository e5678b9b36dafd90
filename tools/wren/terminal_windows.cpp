#include <windows.h>

#include <cstdio>

#include "terminal.h"

namespace wren::terminal {

namespace {

HANDLE standardError() noexcept { return GetStdHandle(STD_ERROR_HANDLE); }

}  // namespace

bool onStandardError() noexcept {
    DWORD mode = 0;
    return GetConsoleMode(standardError(), &mode) != FALSE;
}

unsigned columns() noexcept {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(standardError(), &info)) return 80;
    return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
}

// With blanks, as not every console takes control sequences. One in the last column would wrap.
void clearLine() noexcept {
    if (!onStandardError()) return;
    const int blanks = static_cast<int>(columns()) - 1;
    std::fprintf(stderr, "\r%*s\r", blanks, "");
}

}  // namespace wren::terminal
