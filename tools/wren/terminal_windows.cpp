#include <windows.h>
// Behind windows.h, which it needs.
#include <io.h>

#include "terminal.h"

namespace wren::terminal {

namespace {

HANDLE handleOf(std::FILE* stream) noexcept {
    return reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stream)));
}

}  // namespace

bool isTerminal(std::FILE* stream) noexcept {
    DWORD mode = 0;
    return ::GetConsoleMode(handleOf(stream), &mode) != FALSE;
}

bool takesSequences(std::FILE* stream) noexcept {
    constexpr DWORD kSequences = 0x0004;  // the name is missing in older headers
    DWORD mode = 0;
    HANDLE const console = handleOf(stream);
    return ::GetConsoleMode(console, &mode) != FALSE &&
           ::SetConsoleMode(console, mode | kSequences) != FALSE;
}

unsigned columns() noexcept {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!::GetConsoleScreenBufferInfo(handleOf(stderr), &info)) return 80;
    return static_cast<unsigned>(info.srWindow.Right - info.srWindow.Left + 1);
}

}  // namespace wren::terminal
