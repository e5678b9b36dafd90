#include "terminal.h"

#include <fmt/color.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

namespace wren::terminal {

namespace {

bool coloured(std::FILE* stream) {
    const char* const refused = std::getenv("NO_COLOR");
    return (refused == nullptr || *refused == '\0') && takesSequences(stream);
}

// The status lines that there are, and how many of them the terminal shows.
struct StatusLines {
    // Puts a text in the place of the lines that are shown, and the lines behind it.
    void draw(std::string_view text) noexcept;
    std::string wiping() const;
    std::vector<std::string> present() const;

    std::mutex lock;
    std::vector<std::pair<const StatusLine*, std::string>> lines;
    std::size_t shown = 0;
    std::chrono::steady_clock::time_point drawn;
};

StatusLines& statusLines() {
    static StatusLines all;
    return all;
}

std::string StatusLines::wiping() const {
    if (shown == 0) return "";
    // A blank in the last column would wrap.
    if (!takesSequences(stderr)) return fmt::format("\r{:{}}\r", "", size().columns - 1);
    return shown == 1 ? "\r\x1b[J" : fmt::format("\r\x1b[{}A\x1b[J", shown - 1);
}

// Those that fit; one alone where the cursor cannot go back to the first.
std::vector<std::string> StatusLines::present() const {
    std::vector<std::string> texts;
    const Size room = size();
    for (const auto& [line, text] : lines)
        if (!text.empty()) texts.push_back(text.substr(0, room.columns - 1));
    const std::size_t most = takesSequences(stderr) ? room.rows - 1 : 1;
    if (texts.size() > most) {
        const std::string more = fmt::format("... and {} more", texts.size() - most + 1);
        texts.resize(most);
        texts.back() = more.substr(0, room.columns - 1);
    }
    return texts;
}

void StatusLines::draw(std::string_view text) noexcept try {
    std::vector<std::string> texts;
    if (isTerminal(stderr)) texts = present();
    put(stderr, fmt::format("{}{}{}", wiping(), text, fmt::join(texts, "\n")));
    std::fflush(stderr);
    shown = texts.size();
    drawn = std::chrono::steady_clock::now();
} catch (const std::exception&) {
    std::clearerr(stderr);
}

}  // namespace

void tell(std::string_view text) noexcept {
    const std::lock_guard alone(statusLines().lock);
    statusLines().draw(text);
}

StatusLine::StatusLine() {
    const std::lock_guard alone(statusLines().lock);
    statusLines().lines.emplace_back(this, "");
}

StatusLine::~StatusLine() {
    show("");
    const std::lock_guard alone(statusLines().lock);
    std::erase_if(statusLines().lines, [this](const auto& line) { return line.first == this; });
}

void StatusLine::show(std::string text) noexcept {
    constexpr std::chrono::milliseconds kPause(50);  // between two pictures
    const bool vanishes = text.empty();
    StatusLines& all = statusLines();
    const std::lock_guard alone(all.lock);
    for (auto& [line, shown] : all.lines)
        if (line == this) shown.swap(text);
    const bool due = std::chrono::steady_clock::now() - all.drawn >= kPause;
    if (vanishes ? all.shown > 0 : due) all.draw("");
}

std::string styled(std::FILE* stream, Style style, std::string_view text) {
    if (!coloured(stream)) return std::string(text);
    const fmt::text_style looks = style == Style::error
                                      ? fmt::emphasis::bold | fmt::fg(fmt::terminal_color::red)
                                      : fmt::text_style(fmt::emphasis::reverse);
    return fmt::format(looks, "{}", text);
}

}  // namespace wren::terminal
