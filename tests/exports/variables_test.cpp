// Reading and setting the variables of a stream.
#include <gtest/gtest.h>

#include "tests/exports/host.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

TEST(Variables, OfANewStream) {
    const Simulator simulator;
    const Stream stream;
    const std::string expected =
        "SPIPORT=-1 spiport=-1 SpiPort=-1 MUTEXNAME=usbspi_mutex_-1 SPIMUL=0 QUILLVERSION=0000 "
        "SPICMDBITS=0x0 SPICMDREADBITS=0x0 SPICMDWRITEBITS=0x0 SPIMAXCLOCK=1070 SPI_DELAY=0 "
        "SPICLOCK=4000.000000 QUILLMODE= SPIPORTS= = ";
    std::string found;
    for (const std::string& variable : split(expected)) {
        const std::string name = variable.substr(0, variable.find('='));
        found += name + "=" + stream.get(name.c_str()) + " ";
    }
    EXPECT_EQ(found, expected);
    EXPECT_STREQ(spifns_stream_getvar(stream.id(), nullptr), "");
}

TEST(Variables, AreSetAndRead) {
    const Simulator simulator;
    const Stream stream("0");
    const Failure outOfRange = {1, 0, "SPIMUL is out of range (valid value: 0 - 16)"};
    const struct {
        const char* name;
        const char* value;
        const char* read;
        Failure failure;
        const char* debugText;  // always shown; empty for none
    } cases[] = {
        {"SPIMUL", "16", "16", {}, "Quill mul dev 16"},
        {"SPIMUL", "17", "16", outOfRange, ""},
        {"SPIMUL", "-2", "16", outOfRange, ""},
        {"SPIMUL", "-1", "0", {}, "Quill mul dev 0"},
        {"spimul", "0x10", "16", {}, "Quill mul dev 16"},
        {"SPIMUL", "010 and more", "8", {}, "Quill mul dev 8"},
        {"SPIMUL", "none", "0", {}, "Quill mul dev 0"},
        {"SPIMUL", "99999999999", "0", outOfRange, ""},
        {"SPIMAXCLOCK", "0.5", "1.000000", {}, "Quill Max Clock 1.000000"},
        {"SPIMAXCLOCK", "1500", "1500.000000", {}, "Quill Max Clock 1500.000000"},
        {"SPIMAXCLOCK", "fast", "1.000000", {}, "Quill Max Clock 1.000000"},
        {"SPIMAXCLOCK", "nan", "1.000000", {}, "Quill Max Clock 1.000000"},
        {"SPIMAXCLOCK", "inf", "inf", {}, "Quill Max Clock inf"},
        {"SPIMAXCLOCK", "1234567.1234567", "1234567.123457", {}, "Quill Max Clock 1234567.123457"},
        {"SPIMAXCLOCK", "1e300", "1000000000000000052", {}, "Quill Max Clock 1000000000000000052"},
        {"SPIMAXCLOCK", "1070", "1070.000000", {}, "Quill Max Clock 1070.000000"},
        {"SPI_DELAY", "413", "413", {}, "Quill Set Delays 413"},
        {"SPI_DELAY", "413", "413", {}, ""},
        {"SPI_DELAY", "-65535", "1", {}, "Quill Set Delays 1"},
        {"MUTEXNAME", "mine", "usbspi_mutex_0", {}, ""},
        {"QUILLVERSION", "9", "0108", {}, ""},
        {"QUILLMODE", "JTAG", "", {}, ""},
    };
    DebugTexts texts(stream);
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + "=" + c.value);
        EXPECT_EQ(outcome(stream.set(c.name, c.value)), c.failure);
        EXPECT_EQ(stream.get(c.name), c.read);
        EXPECT_EQ(texts.take(),
                  std::vector<std::string>(*c.debugText == '\0' ? 0 : 1, c.debugText));
    }
}

TEST(Variables, ClocksBecomeDelays) {
    const Simulator simulator;
    const Stream stream("0");
    const struct {
        const char* maximum;
        const char* clock;
        const char* delay;
        const char* read;
    } cases[] = {
        {"1070", "1000", "4", "1066.098081"},       {"1070", "1999", "4", "1066.098081"},
        {"1070", "1999.999", "4", "1066.098081"},   {"1070", "800", "6", "840.336134"},
        {"1070", "500", "12", "513.874615"},        {"1070", "100", "76", "99.900100"},
        {"1070", "50", "155", "50.090162"},         {"1070", "19", "414", "19.012130"},
        {"1070", "1", "7933", "1.000008"},          {"1070", "0.1", "13826", "0.573885"},
        {"1070", "0.12108", "8", "693.481276"},     {"1070", "0.1211", "65533", "0.121101"},
        {"1070", "3.7e-6", "6717", "1.180950"},     {"1070", "3.6e-6", "65534", "0.121099"},
        {"1070", "0x1p-1074", "65534", "0.121099"}, {"1070", "0", "65534", "0.121099"},
        {"1070", "-0", "65534", "0.121099"},        {"1070", "-inf", "65534", "0.121099"},
        {"1070", "2000", "0", "4000.000000"},       {"1070", "nan", "0", "4000.000000"},
        {"1070", "inf", "0", "4000.000000"},        {"1785", "1999", "2", "1457.725948"},
        {"1", "1999", "7934", "0.999882"},          {"0", "800", "7934", "0.999882"},
        {"inf", "1999", "1", "1785.714286"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.maximum) + " " + c.clock);
        EXPECT_EQ(stream.run({setting("SPIMAXCLOCK", c.maximum), setting("SPICLOCK", c.clock)}), 0);
        EXPECT_EQ(stream.get("SPI_DELAY"), c.delay);
        EXPECT_EQ(stream.get("SPICLOCK"), c.read);
    }
}

TEST(Variables, AreListed) {
    const spifns_variable* list = nullptr;
    std::uint32_t count = 0;
    spifns_getvarlist(&list, &count);
    std::vector<std::string> found;
    for (std::uint32_t i = 0; i < count; ++i)
        found.push_back(std::string(list[i].name) + "=" + list[i].default_value + " " +
                        std::to_string(list[i].flag));
    EXPECT_EQ(found, (std::vector<std::string>{"SPIPORT=0 1", "QUILLMODE=SPI 1", "SPI_DELAY=0 0",
                                               "SPICLOCK=0 0", "SPIMUL=0 0", "SPICMDBITS=0 0",
                                               "SPICMDREADBITS=0 0", "SPICMDWRITEBITS=0 0",
                                               "SPIMAXCLOCK=1070 0"}));
    spifns_getvarlist(nullptr, nullptr);
}

}  // namespace
}  // namespace wrenlink::test
