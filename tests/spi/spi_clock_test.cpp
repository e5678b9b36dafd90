#include "quill/spi_clock.h"

#include <gtest/gtest.h>

#include <limits>

namespace wrenlink {
namespace {

TEST(SpiClock, FollowsFromTheDelay) {
    struct {
        std::uint16_t delay;
        double clock;
    } const cases[] = {
        {0, 4000},    {1, 1785.71},   {2, 1457.73}, {3, 1231.53},  {4, 1066.10},
        {5, 939.85},  {6, 840.34},    {12, 513.88}, {76, 99.90},   {413, 19.06},
        {414, 19.01}, {7934, 0.9999}, {7933, 1.00}, {65535, 0.12},
    };
    for (const auto& c : cases)
        EXPECT_NEAR(Quill_GetClockFromDelays(c.delay), c.clock, 0.006) << c.delay;
    EXPECT_LT(Quill_GetClockFromDelays(7934), 1.0);
}

TEST(SpiClock, GivesTheNearestDelayWithinTheMaximum) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    struct {
        double clock;
        std::uint16_t nearest;
        std::uint16_t limited;  // to 1070 kHz
    } const cases[] = {
        {1000, 4, 4},
        {1999, 1, 4},
        {1999.999, 1, 4},
        {800, 6, 6},
        {500, 12, 12},
        {100, 76, 76},
        {50, 155, 155},
        {19, 414, 414},
        {1, 7933, 7933},
        {0.1, static_cast<std::uint16_t>(79362), 13826},
        {0.12108, 8, 8},  // 65544: only the low 16 bits count
        {0.1211, 65533, 65533},
        {3.7e-6, 6717, 6717},  // still fits 32 bits
        {3.6e-6, 65534, 65534},
        {std::numeric_limits<double>::denorm_min(), 65534, 65534},
        {0, 65534, 65534},
        {-0.0, 65534, 65534},
        {-1000, 65534, 65534},
        {-kInfinity, 65534, 65534},
        {2000, 0, 4},
        {kInfinity, 0, 4},
        {std::numeric_limits<double>::quiet_NaN(), 0, 4},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(nearestDelay(c.clock), c.nearest) << c.clock;
        EXPECT_EQ(limitDelay(c.nearest, 1070), c.limited) << c.clock;
    }
}

TEST(SpiClock, SearchForTheMaximumEnds) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    struct {
        double maximum;
        std::uint16_t delay;
        std::uint16_t limited;
    } const cases[] = {
        {1.0, 0, 7934},      {1.0, 1, 7934}, {1.0, 7934, 7934}, {1.0, 65535, 65535}, {4000.0, 0, 0},
        {3999.999999, 0, 1}, {1785.0, 1, 2}, {kInfinity, 0, 0}, {1e300, 0, 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(limitDelay(c.delay, c.maximum), c.limited) << c.delay << " " << c.maximum;
}

}  // namespace
}  // namespace wrenlink
