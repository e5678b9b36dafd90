#include "quill/number_text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>
#include <string>

namespace wrenlink {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct UnsignedCase {
    const char* text;
    std::uint32_t value;
    std::size_t length;  // of what was read
};

constexpr UnsignedCase kUnsignedCases[] = {
    {"", 0, 0},
    {"x", 0, 0},
    {" ", 0, 0},
    {"-", 0, 0},
    {"+-3", 0, 0},
    {"0", 0, 1},
    {"007", 7, 3},
    {"0x10", 0, 1},
    {" \t\n\v\f\r31=5", 31, 8},
    {"+31", 31, 3},
    {"-1", 0xFFFFFFFF, 2},
    {"-4294967295", 1, 11},
    {"4294967295", 0xFFFFFFFF, 10},
    {"4294967296", 0xFFFFFFFF, 10},
    {"-4294967296", 0xFFFFFFFF, 11},
    {"18446744073709551617", 0xFFFFFFFF, 20},
    {"99999999999999999999999999999999", 0xFFFFFFFF, 32},
};

struct SignedCase {
    const char* text;
    std::int32_t value;
};

constexpr SignedCase kSignedCases[] = {
    {"", 0},
    {"none", 0},
    {"12abc", 12},
    {" -12", -12},
    {"+12", 12},
    {"- 1", 0},
    {"0x1F", 31},
    {"0X1f", 31},
    {"-0x10", -16},
    {"0x", 0},
    {"0xg", 0},
    {"0x1{", 1},
    {"x10", 0},
    {"010", 8},
    {"08", 0},
    {"0179", 15},
    {"70000", 70000},
    {"2147483647", 2147483647},
    {"2147483648", 2147483647},
    {"4294967295", 2147483647},
    {"-2147483648", -2147483647 - 1},
    {"-2147483649", -2147483647 - 1},
    {"0xFFFFFFFF", 2147483647},
    {"-99999999999999999999999999", -2147483647 - 1},
};

struct DoubleCase {
    const char* text;
    double value;
};

constexpr DoubleCase kDoubleCases[] = {
    {"", 0},
    {"fast", 0},
    {".", 0},
    {"+-5", 0},
    {"--5", 0},
    {"1070", 1070},
    {" \t+12.5kHz", 12.5},
    {"-.5", -0.5},
    {"5.", 5},
    {"1,5", 1},
    {"1e3", 1000},
    {"1E+3", 1000},
    {"1e", 1},
    {"1e+", 1},
    {"1d3", 1},
    {"0.1", 0.1},
    {"123456789012345678901234567890", 123456789012345678901234567890.0},
    {"0x10", 16},
    {"0X1.8p1", 3},
    {"-0x.8", -0.5},
    {"0x", 0},
    {"0x.p1", 0},
    {"inf", kInfinity},
    {"-Infinity", -kInfinity},
    {"1e308", 1e308},
    {"1e309", kInfinity},
    {"1e+309", kInfinity},
    {"-1e309", -kInfinity},
    {"1e99999999999999999999", kInfinity},
    {"0.0001e320", kInfinity},
    {"1e-400", 0},
    {"-1e-99999999999999999999", 0},
    {"1000000e-400", 0},
    {"0e999999999", 0},
    {"0x1p1024", kInfinity},
    {"0x1p-2000", 0},
    {"4.9406564584124654e-324", std::numeric_limits<double>::denorm_min()},
};

void checkAllTables() {
    for (const UnsignedCase& c : kUnsignedCases) {
        const ParsedUnsigned parsed = parseUnsigned(c.text);
        EXPECT_EQ(parsed.value, c.value) << c.text;
        EXPECT_EQ(parsed.end, c.text + c.length) << c.text;
    }
    for (const SignedCase& c : kSignedCases) {
        EXPECT_EQ(parseSigned(c.text), c.value) << c.text;
        EXPECT_EQ(parseWord(c.text), static_cast<std::uint16_t>(c.value)) << c.text;
    }
    for (const DoubleCase& c : kDoubleCases) EXPECT_EQ(parseDouble(c.text), c.value) << c.text;
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
    struct {
        const char* left;
        const char* right;
        bool equal;
    } const cases[] = {
        {"", "", true},
        {"SpiPort", "SPIPORT", true},
        {"SPIPORT", "SPIPOR", false},
        {"@", "`", false},
        {"[", "{", false},
        {"SPIPOR", "SPIPORT", false},
        {"\xC4", "\xE4", false},
        {"SPI_DELAY", "SPI?DELAY", false},
        {nullptr, "", false},
        {"", nullptr, false},
        {nullptr, nullptr, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(equalsIgnoringCase(c.left, c.right), c.equal)
            << (c.left == nullptr ? "null" : c.left);
}

}  // namespace
}  // namespace wrenlink
