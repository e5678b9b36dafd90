// File formats of the tool, as texts alone.
#include <gtest/gtest.h>

#include "tools/wren/image_format.h"
#include "tools/wren/number.h"
#include "tools/wren/script.h"

namespace wren {
namespace {

// The contents as text of words, or why they are refused.
std::string read(const char* format, std::string_view contents, Endian endian) {
    try {
        return formatByName("text")->print(formatByName(format)->parse(contents, endian), endian);
    } catch (const FormatError& error) {
        return error.what();
    }
}

TEST(Formats, AreReadStrictly) {
    constexpr Endian kLittle = Endian::little;
    const struct {
        const char* format;
        const char* contents;
        const char* expected;
        Endian endian = kLittle;
    } cases[] = {
        {"raw", "AB", "0000: 4241\n"},
        {"raw", "AB", "0000: 4142\n", Endian::big},
        {"text", "10: 1 ABCD # end\r\n\n0x20:0x3|text|", "0010: 0001 abcd\n0020: 0003\n"},
        {"text", "ffff: 1\nfffe: 2", "fffe: 0002 0001\n"},
        {"text", "0: 1\n0: 1", "line 2: the word at 0x0000 is there twice"},
        {"text", "ffff: 1 2", "line 1: it goes beyond the last word, 0xffff"},
        {"text", "0: 10000", "line 1: '10000' is no hexadecimal number up to ffff"},
        {"text", "1 2", "line 1: a line reads 'address: words'"},
        {"text", "1 2: 3", "line 1: a line reads 'address: words'"},
        {"text", "3:", "line 1: a line reads 'address: words'"},
        {"text", "# none\n", "it holds no words"},
        {"hex", ":0400000001000200F9\n:00000001FF\n", "0000: 0001 0002\n"},
        {"hex", ":0400000001000200F9\r\n:00000001FF", "0000: 0100 0200\n", Endian::big},
        {"hex", ":020000040001F9\n:02FFFE00341 2BB\n", "line 2: the record is cut off"},
        {"hex", ":020000040001F9\n:02FFFE003412BB\n:00000001FF", "ffff: 1234\n"},
        {"hex", ":020000021000EC\n:02FFFE003412BB\n:00000001FF", "ffff: 1234\n"},
        {"hex", ":020000040002F8\n:020000003412B8\n:00000001FF",
         "line 2: it goes beyond the last word, 0xffff"},
        {"hex", ":0400000001000200F9\n", "it has no end record, so it may be cut off"},
        {"hex", ":0400000001000200F8\n", "line 1: the record's checksum is wrong"},
        {"hex", ":04000000010002F9\n", "line 1: the record is not as long as it says"},
        {"hex", ":00000006FA\n", "line 1: no record type 06"},
        {"hex", ":01000000 FF\n", "line 1: the record is cut off"},
        {"hex", ":01000000GGFF\n", "line 1: a record is hexadecimal digits"},
        {"hex", "0400000001000200F9\n", "line 1: a record starts with ':'"},
        {"hex", ":0100000001FE\n:00000001FF", "it has one byte alone of the word at 0x0000"},
        {"hex", ":0100000001FE\n:0100000001FE\n", "line 2: the word at 0x0000 is there twice"},
        {"hex", ":00000001FF\n:00000001FF\n", "line 2: the file goes on behind its end record"},
        {"hex", ":0100000400FB\n", "line 1: a base address has two bytes"},
        {"hex", ":0400000500000000F7\n:00000001FF\n", "it holds no words"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(read(test.format, test.contents, test.endian), test.expected) << test.contents;
}

TEST(Formats, GiveBackWhatTheyWereGiven) {
    ImageBuilder builder;
    // Over the end of the first 64 KiB of bytes, and with gaps.
    for (std::uint32_t address = 0x7FFB; address < 0x8006; ++address)
        builder.add(address, static_cast<std::uint16_t>(address * 0x1357));
    builder.add(0, 0x1234);
    builder.add(0xFFFF, 0x5678);
    const Segments image = builder.segments();
    for (const ImageFormat& format : imageFormats()) {
        for (const Endian endian : {Endian::little, Endian::big}) {
            const std::string contents = format.print(image, endian);
            EXPECT_EQ(format.print(format.parse(contents, endian), endian), contents);
            if (format.hasAddresses) {
                EXPECT_EQ(format.parse(contents, endian).size(), 3);
            }
        }
    }
}

TEST(Formats, AreToldByTheNameOfAFile) {
    for (const auto& [path, name] : {std::pair("a.hex", "hex"),
                                     {"A.IHX", "hex"},
                                     {"a.txt", "text"},
                                     {"-", "text"},
                                     {"a.bin", "raw"},
                                     {"hex", "raw"}})
        EXPECT_EQ(formatOfFile(path).name, name) << path;
}

TEST(Scripts, AreReadStrictly) {
    for (const auto& [text, reason] :
         {std::pair("", "there are no actions in it"),
          {"read 0", "line 1: the line reads 'read ADDR COUNT'"},
          {"\nread 0 65536", "line 2: '65536' is not a number from 1 to 65535 (decimal or 0x...)"},
          {"write 0", "line 1: the line reads 'write ADDR WORDS...'"},
          {"write 0 0x10000",
           "line 1: '0x10000' is not a number from 0 to 65535 (decimal or 0x...)"},
          {"set SPIMUL 3", "line 1: the line reads 'set NAME=VALUE'"},
          {"erase", "line 1: no action 'erase'; there are read, write, set"}}) {
        try {
            parseScript(text);
            ADD_FAILURE() << text;
        } catch (const std::exception& error) {
            EXPECT_STREQ(error.what(), reason);
        }
    }
}

}  // namespace
}  // namespace wren
