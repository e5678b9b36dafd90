#include "terminal.h"

#include <fmt/color.h>
#include <fmt/format.h>

#include <cstdlib>
#include <exception>

namespace wren::terminal {

namespace {

bool coloured(std::FILE* stream) {
    const char* const refused = std::getenv("NO_COLOR");
    return (refused == nullptr || *refused == '\0') && takesSequences(stream);
}

}  // namespace

void tell(std::string_view text) noexcept {
    try {
        fmt::print(stderr, "{}", text);
        std::fflush(stderr);
    } catch (const std::exception&) {
        std::clearerr(stderr);
    }
}

void clearLine() noexcept {
    if (!isTerminal(stderr)) return;
    if (takesSequences(stderr)) {
        std::fputs("\r\x1b[K", stderr);
        return;
    }
    // A blank in the last column would wrap.
    const int blanks = static_cast<int>(columns()) - 1;
    std::fprintf(stderr, "\r%*s\r", blanks, "");
}

std::string styled(std::FILE* stream, Style style, std::string_view text) {
    if (!coloured(stream)) return std::string(text);
    const fmt::text_style looks = style == Style::error
                                      ? fmt::emphasis::bold | fmt::fg(fmt::terminal_color::red)
                                      : fmt::text_style(fmt::emphasis::reverse);
    return fmt::format(looks, "{}", text);
}

}  // namespace wren::terminal
