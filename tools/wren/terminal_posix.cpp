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

unsigned columns() noexcept {
    winsize size{};
    const bool told = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return told ? size.ws_col : 80;
}

}  // namespace wren::terminal
