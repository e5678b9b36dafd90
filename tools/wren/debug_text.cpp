#include "debug_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "failure.h"
#include "terminal.h"

namespace wren {

void DebugText::logTo(const std::string& path) {
    file_.open(path);
    path_ = path;
}

void DebugText::tell(std::string_view line) {
    note(line);
    terminal::tell(fmt::format("wren: {}\n", line));
}

void DebugText::take(const std::string& mark, std::string_view text) {
    const std::string line = mark + flattened(text);
    verbosity_ > 1 || text.starts_with("WARNING") ? tell(line) : note(line);
}

void DebugText::note(std::string_view line) {
    // The library's work goes on; whether it failed is asked at the end.
    if (failureOf([&] { file_.add(fmt::format("{} {}\n", timeStamp(), line)); }))
        isComplete_ = false;
}

void DebugText::finish() {
    if (!isComplete_)
        throw Failure(ExitCode::failed, fmt::format("the log '{}' is not complete", path_));
}

std::string flattened(std::string_view text) {
    constexpr std::string_view kBreaks = "\r\n";
    std::string line;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t stop = std::min(text.find_first_of(kBreaks, at), text.size());
        line += text.substr(at, stop - at);
        at = std::min(text.find_first_not_of(kBreaks, stop), text.size());
        const bool joins = stop < at && at < text.size() && text[at] != ':';
        if (joins) line += ' ';
    }
    return line;
}

}  // namespace wren
