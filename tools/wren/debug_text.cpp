#include "debug_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "failure.h"
#include "system.h"
#include "terminal.h"

namespace wren {

void DebugText::logTo(const std::string& path) {
    file_.reset(system::openFile(pathOf(path), "ab"));
    if (!file_) failWithErrno("write", path);
    path_ = path;
}

void DebugText::tell(std::string_view line) {
    note(line);
    terminal::tell(fmt::format("wren: {}\n", line));
}

void DebugText::take(const std::string& mark, std::string_view text) {
    const std::string line = mark + flattened(text);
    showsAll_ || text.starts_with("WARNING") ? tell(line) : note(line);
}

void DebugText::note(std::string_view line) {
    if (!file_) return;
    const std::lock_guard alone(noting_);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const std::string stamped = fmt::format(
        "{:%FT%T}.{:03}Z {}\n", fmt::gmtime(static_cast<std::time_t>(milliseconds / 1000)),
        milliseconds % 1000, line);
    // Whether it failed is asked at the end.
    std::fwrite(stamped.data(), 1, stamped.size(), file_.get());
    std::fflush(file_.get());
}

void DebugText::finish() {
    if (file_ && std::ferror(file_.get()) != 0)
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
