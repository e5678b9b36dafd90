#include "progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "adapter.h"
#include "image.h"
#include "terminal.h"

namespace wren {

namespace {

// How long nothing is told: of the bar, at its start.
std::chrono::milliseconds pauseOf(ProgressForm form) {
    using std::chrono::milliseconds;
    return form == ProgressForm::bar     ? milliseconds(300)
           : form == ProgressForm::lines ? milliseconds(1000)
                                         : milliseconds(250);
}

// A bar in the columns that a text leaves free, if there are enough.
std::string barBeside(std::size_t textColumns, std::size_t done, std::size_t total) {
    constexpr std::size_t kNarrowest = 10;
    constexpr std::size_t kWidest = 50;
    const std::size_t taken = textColumns + std::string_view("[] ").size();
    const std::size_t columns = terminal::size().columns - 1;
    if (columns < taken + kNarrowest) return "";
    const std::size_t width = std::min(columns - taken, kWidest);
    const std::size_t filled = width * done / total;
    return fmt::format("[{:#<{}}{:.<{}}] ", "", filled, "", width - filled);
}

}  // namespace

Progress::Progress(Adapter& adapter, const char* doing, std::size_t total)
    : adapter_(adapter), doing_(doing), total_(total) {}

Progress::~Progress() { adapter_.status.show(""); }

void Progress::update(std::size_t done) {
    const ProgressForm form = adapter_.context.progress;
    const Clock::time_point now = Clock::now();
    const bool isBar = form == ProgressForm::bar;
    const bool isLast = done == total_ && !isBar;
    if (form == ProgressForm::none || done == 0 || (!isLast && now - told_ < pauseOf(form))) return;
    if (!isBar) told_ = now;
    const double seconds = std::max(Seconds(now - start_).count(), 1e-6);
    const double rate = static_cast<double>(done) / seconds;
    show(done, rate, static_cast<double>(total_ - done) / rate);
}

void Progress::show(std::size_t done, double rate, double left) {
    const ProgressForm form = adapter_.context.progress;
    if (form == ProgressForm::json) {
        const Json line{{"progress", doing_},
                        {"adapter", adapter_.report.adapter()},
                        {"done", done},
                        {"total", total_},
                        {"words_per_second", std::llround(rate)},
                        {"seconds_left", std::round(10 * left) / 10}};
        return terminal::tell(line.dump() + '\n');
    }
    // What matters most comes first: a narrow terminal cuts off the rest.
    const std::string head = fmt::format("{}{:3}% ", adapter_.report.mark(), done * 100 / total_);
    const std::string tail =
        fmt::format("{} {}, {:.0f} words/s, {:.0f} s left", doing_, countOf(total_), rate, left);
    if (form == ProgressForm::lines) return terminal::tell("wren: " + head + tail + '\n');
    adapter_.status.show(head + barBeside(head.size() + tail.size(), done, total_) + tail);
}

}  // namespace wren
