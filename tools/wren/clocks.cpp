#include "clocks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "failure.h"
#include "number.h"

namespace wren {

namespace {

constexpr double kFastest = 4000;
// From here on the library sets the fastest clock.
constexpr double kFastestFrom = 2000;

double clockOf(std::uint32_t delay) { return delay == 0 ? kFastest : 1e6 / (126.0 * delay + 434); }

// The shortest delay whose clock is not above this one.
std::uint32_t delayUpTo(double clock) {
    if (clock >= kFastest) return 0;
    const double exact = std::ceil((1e6 / clock - 434) / 126);
    return static_cast<std::uint32_t>(std::max(exact, 1.0));
}

std::string near(double clock) {
    const std::uint32_t slower = delayUpTo(clock);
    if (slower == 0) return clockText(kFastest);
    return fmt::format("{} and {}", clockText(clockOf(slower)), clockText(clockOf(slower - 1)));
}

void requireClock(const Setting& setting, double asked, double driven, double maximum) {
    if (driven <= maximum) return;
    throw Failure(
        ExitCode::usage,
        fmt::format("{}={} means {}, above the maximum of {}", setting.name, setting.value,
                    clockText(driven), clockText(maximum)),
        fmt::format(
            "the adapter has {}, and {} up to the maximum; choose with --clock and --max-clock",
            near(asked), clockText(clockOf(delayUpTo(maximum)))));
}

}  // namespace

std::string clockText(double clock) { return fmt::format("{:.5g} kHz", clock); }

void requireClocks(std::span<const Setting> settings, double maximum) {
    for (const Setting& setting : settings) {
        const double value = decimalNumber(setting.value).value_or(0);
        if (setting.name == "SPIMAXCLOCK") maximum = value;
        if (setting.name == "SPICLOCK")
            requireClock(setting, value, value < kFastestFrom ? value : kFastest, maximum);
        if (setting.name == "SPI_DELAY") {
            const double clock = clockOf(static_cast<std::uint32_t>(value));
            requireClock(setting, clock, clock, maximum);
        }
    }
}

}  // namespace wren
