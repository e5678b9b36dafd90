#include "quill/number_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/test_runtime.h"

namespace wrenlink {
namespace {

const std::string kZeros(5000, '0');
const std::string kTexts[] = {
    "", "none", "fast", "x", " ", "-", "- 1", "+-3", "--5", "0", "007", "010", "08", "0179",
    // Signs, blanks and what follows.
    "+31", " \t\n\v\f\r31", " -12", "12abc", "+12", "31=5", "0x10", "0x1{", "0x", "0xg", "x10",
    "0x1F", "0X1f", "-0x10",
    // Around the limits of 16, 32 and 64 bits.
    "70000", "2147483647", "2147483648", "-2147483648", "-2147483649", "4294967295", "0xFFFFFFFF",
    "4294967296", "-1", "-4294967295", "-4294967296", "18446744073709551617",
    "99999999999999999999999999999999", "-99999999999999999999999999", kZeros + "17",
    // Fractions and exponents.
    ".", "1,5", "0.1", "5.", "-.5", "1e", "1e+", "1d3", "1e3", "1E+3", " \t+12.5kHz",
    "123456789012345678901234567890", "0x.p1", "-0x.8", "0X1.8p1", "0e999999999", "1000000e-400",
    // Around the limits of a double.
    "1e308", "1e309", "1e+309", "-1e309", "0.0001e320", "1e99999999999999999999", "0x1p1024",
    "4.9406564584124654e-324", "1e-400", "-1e-99999999999999999999", "0x1p-2000",
    "0." + kZeros + "1e5002", "0." + kZeros + "1e400", "0." + kZeros + "1", "1" + kZeros,
    "0x1" + kZeros, "0x1" + kZeros + "p-9000", "inf", "-Infinity", "nan", "NAN", "-nan", "nan(12)"};

// A text as each kind of number: an unsigned one and its length, a signed one, a word, and a real
// one, which may be none.
using Reading =
    std::tuple<std::uint32_t, std::ptrdiff_t, std::int32_t, std::uint16_t, std::optional<double>>;

std::optional<double> unlessNan(double number) {
    return std::isnan(number) ? std::nullopt : std::optional(number);
}

Reading read(const char* text) {
    const auto [value, end] = parseUnsigned(text);
    return {value, end - text, parseSigned(text), parseWord(text), unlessNan(parseDouble(text))};
}

// As strtoul in base 10, strtol in base 0 and strtod read it, where `long` has 32 bits.
Reading readByTheCLibrary(const char* text) {
    using Limits = std::numeric_limits<std::int32_t>;
    char* end = nullptr;
    errno = 0;
    const unsigned long long wide = std::strtoull(text, &end, 10);
    const bool negative = text[std::strspn(text, " \t\n\v\f\r")] == '-';
    const bool fits = errno != ERANGE && (negative ? 0 - wide : wide) <= 0xFFFFFFFF;
    const auto number = static_cast<std::int32_t>(
        std::clamp<long long>(std::strtoll(text, nullptr, 0), Limits::min(), Limits::max()));
    return {fits ? static_cast<std::uint32_t>(wide) : 0xFFFFFFFF, end - text, number,
            number & 0xFFFF, unlessNan(std::strtod(text, nullptr))};
}

TEST(NumberText, ReadsNumbersAsTheCLibraryDoesButTheSameInEveryLocale) {
    std::vector<Reading> expected;
    for (const std::string& text : kTexts) expected.push_back(readByTheCLibrary(text.c_str()));
    test::setEnvironment("LOCPATH", LOCALES);
    bool comma = false;
    for (const char* locale : {"C", "C.UTF-8", "tr_TR", "German"}) {
        if (std::setlocale(LC_ALL, locale) == nullptr) continue;  // the other system's
        comma = comma || *std::localeconv()->decimal_point == ',';
        SCOPED_TRACE(locale);
        for (std::size_t i = 0; i < std::size(kTexts); ++i)
            EXPECT_EQ(read(kTexts[i].c_str()), expected[i]) << kTexts[i];
        EXPECT_TRUE(equalsIgnoringCase("SPICLOCK", "spiclock"));
    }
    EXPECT_TRUE(comma) << "one of them writes numbers otherwise";
    std::setlocale(LC_ALL, "C");
}

TEST(NumberText, ComparesAsciiLettersOnly) {
    EXPECT_TRUE(equalsIgnoringCase("", ""));
    EXPECT_TRUE(equalsIgnoringCase("SpiPort_@[`{", "SPIPORT_@[`{"));
    for (const auto& [left, right] : {std::pair("SPIPORT", "SPIPOR"),
                                      {"@", "`"},
                                      {"[", "{"},
                                      {"\xC4", "\xE4"},
                                      {"_", "\x7F"},
                                      {nullptr, ""},
                                      {nullptr, nullptr}}) {
        EXPECT_FALSE(equalsIgnoringCase(left, right)) << left;
        EXPECT_FALSE(equalsIgnoringCase(right, left)) << left;
    }
}

}  // namespace
}  // namespace wrenlink
