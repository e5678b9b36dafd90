#include "progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "terminal.h"

namespace wren {

namespace {

std::size_t barColumns(std::size_t taken) {
    constexpr std::size_t kWidest = 50;
    const std::size_t columns = terminal::columns();
    return columns > taken ? std::min(columns - taken, kWidest) : 0;
}

}  // namespace

ProgressBar::ProgressBar(std::string label, std::size_t total)
    : label_(std::move(label)), total_(total), watched_(terminal::isTerminal(stderr)) {}

ProgressBar::~ProgressBar() {
    if (shown_) terminal::clearLine();
}

void ProgressBar::update(std::size_t done) {
    constexpr std::chrono::duration<double> kNoTime(0.3);
    const std::chrono::duration<double> taken = Clock::now() - start_;
    if (!watched_ || done == 0 || taken < kNoTime) return;
    shown_ = true;
    const double rate = static_cast<double>(done) / taken.count();
    const double left = static_cast<double>(total_ - done) / rate;
    const std::string tail = fmt::format("{:3}% of {} words, {:.0f} words/s, {:.0f} s left",
                                         done * 100 / total_, total_, rate, left);
    const std::size_t width = barColumns(label_.size() + tail.size() + 5);
    const std::size_t filled = width * done / total_;
    terminal::clearLine();
    terminal::tell(
        fmt::format("{} [{:#<{}}{:.<{}}] {}", label_, "", filled, "", width - filled, tail));
}

}  // namespace wren
