#include "quill/number_text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <string>
#include <utility>

namespace wrenlink {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// What texts are read as.
template <class Number>
struct Reading {
    Number value;
    std::initializer_list<const char*> texts;
};

const Reading<std::uint32_t> kUnsigned[] = {
    {0, {"0"}},
    {1, {"-4294967295"}},
    {7, {"007"}},
    {31, {"+31", " \t\n\v\f\r31"}},
    {0xFFFFFFFF,
     {"-1", "4294967295", "4294967296", "-4294967296", "18446744073709551617",
      "99999999999999999999999999999999"}},
};

const Reading<std::int32_t> kSigned[] = {
    {0, {"", "none", "- 1", "0x", "0xg", "x10", "08"}},
    {1, {"0x1{"}},
    {8, {"010"}},
    {12, {"12abc", "+12"}},
    {-12, {" -12"}},
    {15, {"0179"}},
    {31, {"0x1F", "0X1f"}},
    {-16, {"-0x10"}},
    {70000, {"70000"}},
    {2147483647, {"2147483647", "2147483648", "4294967295", "0xFFFFFFFF"}},
    {-2147483647 - 1, {"-2147483648", "-2147483649", "-99999999999999999999999999"}},
};

const Reading<double> kDouble[] = {
    {0,
     {"", "fast", ".", "+-5", "--5", "0x", "0x.p1", "1e-400", "-1e-99999999999999999999",
      "1000000e-400", "0e999999999", "0x1p-2000"}},
    {1, {"1,5", "1e", "1e+", "1d3"}},
    {1000, {"1e3", "1E+3"}},
    {12.5, {" \t+12.5kHz"}},
    {-0.5, {"-.5", "-0x.8"}},
    {5, {"5."}},
    {0.1, {"0.1"}},
    {123456789012345678901234567890.0, {"123456789012345678901234567890"}},
    {16, {"0x10"}},
    {3, {"0X1.8p1"}},
    {1e308, {"1e308"}},
    {std::numeric_limits<double>::denorm_min(), {"4.9406564584124654e-324"}},
    {kInfinity, {"inf", "1e309", "1e+309", "1e99999999999999999999", "0.0001e320", "0x1p1024"}},
    {-kInfinity, {"-Infinity", "-1e309"}},
};

void checkAllTables() {
    for (const auto& [value, texts] : kUnsigned)
        for (const char* text : texts) {
            EXPECT_EQ(parseUnsigned(text).value, value) << text;
            EXPECT_STREQ(parseUnsigned(text).end, "");
        }
    // The number ends at the mark.
    for (std::string text : {"0|x10", "31|=5", "|x", "| ", "|-", "|+-3", "|"}) {
        const std::size_t length = text.find('|');
        text.erase(length, 1);
        EXPECT_EQ(parseUnsigned(text.c_str()).end, text.c_str() + length) << text;
    }
    for (const auto& [value, texts] : kSigned)
        for (const char* text : texts) {
            EXPECT_EQ(parseSigned(text), value) << text;
            EXPECT_EQ(parseWord(text), static_cast<std::uint16_t>(value)) << text;
        }
    for (const auto& [value, texts] : kDouble)
        for (const char* text : texts) EXPECT_EQ(parseDouble(text), value) << text;
}

TEST(NumberText, ReadsTheSameNumbersInEveryLocale) {
    for (const char* locale : {"C", "C.UTF-8", "de_DE.UTF-8", "fr_FR.UTF-8", "tr_TR.UTF-8"}) {
        if (std::setlocale(LC_ALL, locale) == nullptr) continue;  // not on this machine
        SCOPED_TRACE(locale);
        checkAllTables();
        EXPECT_TRUE(equalsIgnoringCase("SPICLOCK", "spiclock"));
    }
    std::setlocale(LC_ALL, "C");
}

TEST(NumberText, ReadsNumbersLongerThanAnyBuffer) {
    const std::string zeros(5000, '0');
    EXPECT_EQ(parseDouble(("0." + zeros + "1e5002").c_str()), 10);
    EXPECT_EQ(parseDouble(("0." + zeros + "1").c_str()), 0);
    EXPECT_EQ(parseDouble(("1" + zeros).c_str()), kInfinity);
    EXPECT_EQ(parseDouble(("0x1" + zeros).c_str()), kInfinity);
    EXPECT_EQ(parseSigned((zeros + "17").c_str()), 15);
}

TEST(NumberText, ReadsWhatIsNotANumberAsStrtodDoes) {
    for (const char* text : {"nan", "NAN", "-nan", "nan(12)"})
        EXPECT_TRUE(std::isnan(parseDouble(text))) << text;
}

TEST(NumberText, ComparesAsciiLettersOnly) {
    EXPECT_TRUE(equalsIgnoringCase("", ""));
    EXPECT_TRUE(equalsIgnoringCase("SpiPort_@[`{", "SPIPORT_@[`{"));
    for (const auto& [left, right] : {std::pair("SPIPORT", "SPIPOR"),
                                      {"@", "`"},
                                      {"[", "{"},
                                      {"\xC4", "\xE4"},
                                      {"_", "\x7F"}}) {
        EXPECT_FALSE(equalsIgnoringCase(left, right)) << left;
        EXPECT_FALSE(equalsIgnoringCase(right, left)) << left;
    }
    EXPECT_FALSE(equalsIgnoringCase(nullptr, ""));
    EXPECT_FALSE(equalsIgnoringCase("", nullptr));
    EXPECT_FALSE(equalsIgnoringCase(nullptr, nullptr));
}

}  // namespace
}  // namespace wrenlink
