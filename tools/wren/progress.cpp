#include "progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
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
    : label_(std::move(label)), total_(total), shown_(terminal::onStandardError()) {
    update(0);
}

ProgressBar::~ProgressBar() { terminal::clearLine(); }

void ProgressBar::update(std::size_t done) {
    if (!shown_) return;
    const std::string tail = fmt::format("{:3}% of {} words", done * 100 / total_, total_);
    const std::size_t width = barColumns(label_.size() + tail.size() + 5);
    const std::size_t filled = width * done / total_;
    const std::string line =
        fmt::format("\r{} [{:#<{}}{:.<{}}] {}", label_, "", filled, "", width - filled, tail);
    std::fputs(line.c_str(), stderr);
}

}  // namespace wren
