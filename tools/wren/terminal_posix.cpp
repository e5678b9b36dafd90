#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "terminal.h"

namespace wren::terminal {

bool isTerminal(std::FILE* stream) noexcept { return ::isatty(::fileno(stream)) == 1; }

bool takesSequences(std::FILE* stream) noexcept {
    const char* const kind = std::getenv("TERM");
    return isTerminal(stream) && kind != nullptr && *kind != '\0' &&
           std::string_view(kind) != "dumb";
}

bool put(std::FILE* stream, std::string_view text) {
    return std::fwrite(text.data(), 1, text.size(), stream) == text.size();
}

Size size() noexcept {
    winsize told{};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &told) != 0 || told.ws_col == 0 || told.ws_row == 0)
        return {};
    return {told.ws_col, told.ws_row};
}

}  // namespace wren::terminal
