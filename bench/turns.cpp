#include "bench/turns.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace wrenlink::bench {

void Turns::take(Way& way) const {
    const std::clock_t processor = std::clock();
    const auto clock = std::chrono::steady_clock::now();
    for (unsigned job = 0; job < jobs_; ++job) way.job();
    way.clock +=
        std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - clock).count();
    way.processor += 1e9 / CLOCKS_PER_SEC * static_cast<double>(std::clock() - processor);
}

void Turns::round() {
    for (Way& way : ways_) take(way);
    std::for_each(ways_.rbegin(), ways_.rend(), [this](Way& way) { take(way); });
    ++rounds_;
}

std::vector<Way> Turns::results() const {
    std::vector<Way> results = ways_;
    for (Way& way : results) {
        way.clock /= 2.0 * jobs_ * rounds_;
        way.processor /= 2.0 * jobs_ * rounds_;
    }
    return results;
}

}  // namespace wrenlink::bench
