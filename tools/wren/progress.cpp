#include "progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "terminal.h"

namespace wren {

namespace {

std::size_t barColumns(std::size_t taken) {
    constexpr std::size_t kWidest = 50;
    const std::size_t columns = terminal::size().columns;
    return columns > taken ? std::min(columns - taken, kWidest) : 0;
}

}  // namespace

ProgressBar::ProgressBar(terminal::StatusLine& line, std::string label, std::size_t total)
    : line_(line), label_(std::move(label)), total_(total) {}

void ProgressBar::update(std::size_t done) {
    constexpr std::chrono::duration<double> kNoTime(0.3);
    const std::chrono::duration<double> taken = Clock::now() - start_;
    if (done == 0 || taken < kNoTime) return;
    const double rate = static_cast<double>(done) / taken.count();
    const double left = static_cast<double>(total_ - done) / rate;
    const std::string tail = fmt::format("{:3}% of {} words, {:.0f} words/s, {:.0f} s left",
                                         done * 100 / total_, total_, rate, left);
    const std::size_t width = barColumns(label_.size() + tail.size() + 5);
    const std::size_t filled = width * done / total_;
    line_.show(fmt::format("{} [{:#<{}}{:.<{}}] {}", label_, "", filled, "", width - filled, tail));
}

}  // namespace wren
