#include <windows.h>
// Behind windows.h, which it needs.
#include <io.h>

#include "sim/windows/unicode.h"
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

bool put(std::FILE* stream, std::string_view text) { return quillsim::print(stream, text); }

Size size() noexcept {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!::GetConsoleScreenBufferInfo(handleOf(stderr), &info)) return {};
    const SMALL_RECT& window = info.srWindow;
    return {static_cast<unsigned>(window.Right - window.Left + 1),
            static_cast<unsigned>(window.Bottom - window.Top + 1)};
}

}  // namespace wren::terminal
