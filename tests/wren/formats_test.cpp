// Formats of files, as texts alone.
#include <gtest/gtest.h>

#include "tools/wren/image_format.h"
#include "tools/wren/script.h"

namespace wren {
namespace {

// What a file holds, as text of words, or why it is refused; of a script, why it is refused.
std::string read(std::string_view file, std::string_view contents, Endian endian) try {
    if (file == "script") return std::to_string(parseScript(contents).size());
    const ImageFormat* const told = formatOfFile(file);
    if (told == nullptr) return "no format";
    const std::string_view contradiction = contradictionOf(told, contents);
    if (!contradiction.empty()) return std::string(contradiction);
    const Segments image = told->parse(contents, endian);
    for (const ImageFormat& format : imageFormats()) {
        const std::string printed = format.print(image, endian);
        const Segments again = format.parse(printed, endian);
        EXPECT_EQ(format.print(again, endian), printed);
        EXPECT_EQ(again.size(), format.hasAddresses ? image.size() : 1);
    }
    return formatByName("text")->print(image, endian);
} catch (const std::exception& error) {
    return error.what();
}

TEST(Formats, AreReadStrictly) {
    using namespace std::string_view_literals;
    constexpr Endian kLittle = Endian::little;
    const struct {
        const char* file;
        std::string_view contents;
        const char* expected;
        Endian endian = kLittle;
    } cases[] = {
        {"a.bin", "AB", "0000: 4241\n"},
        {"hex", "AB", "0000: 4142\n", Endian::big},
        {"hex", "", "it is empty"},
        {"hex", "odd", "it has 3 bytes, and words have two each"},
        {"-", "10: 1 ABCD # end\r\n\n0x20:0x3|text|", "0010: 0001 abcd\n0020: 0003\n"},
        {"-", "ffff: 1\nfffe: 2", "fffe: 0002 0001\n"},
        {"-", "0: 9\n7ffb: 1 2 3 4 5 6 7 8 9\nffff: 6",  // over the first 64 KiB of bytes
         "0000: 0009\n7ffb: 0001 0002 0003 0004 0005 0006 0007 0008\n8003: 0009\nffff: 0006\n"},
        {"-", "\xEF\xBB\xBF 0: 1", "0000: 0001\n"},
        {"-", "\xFF\xFE\x30\0:\0\x31\0\r\0\n\0"sv, "0000: 0001\n"},
        {"-", "\0\x30\0:\0\x31\0#\x26\x02"sv, "0000: 0001\n"},
        {"-", "0: 1\n0: 1", "line 2: the word at 0x0000 is there twice"},
        {"-", "ffff: 1 2", "line 1: it goes beyond the last word, 0xffff"},
        {"-", "0: 10000", "line 1: '10000' is no hexadecimal number up to ffff"},
        {"-", "1 2", "line 1: a line reads 'address: words'"},
        {"-", "1 2: 3", "line 1: a line reads 'address: words'"},
        {"-", "3:", "line 1: a line reads 'address: words'"},
        {"a.txt", "# none\n", "it holds no words"},
        {"a.hex", ":0400000001000200F9\n:00000001FF\n", "0000: 0001 0002\n"},
        {"A.IHX", ":0400000001000200F9\r\n:00000001FF", "0000: 0100 0200\n", Endian::big},
        {"a.hex", ":020000040001F9\n:02FFFE003412BB\n:00000001FF", "ffff: 1234\n"},
        {"a.hex", ":020000021000EC\n:02FFFE003412BB\n:00000001FF", "ffff: 1234\n"},
        {"a.hex", ":020000040002F8\n:020000003412B8\n",
         "line 2: it goes beyond the last word, 0xffff"},
        {"a.hex", ":0400000001000200F9\n", "it has no end record, so it may be cut off"},
        {"a.hex", ":0400000001000200F8\n", "line 1: the record's checksum is wrong"},
        {"a.hex", ":04000000010002F9\n", "line 1: the record is not as long as it says"},
        {"a.hex", ":00000006FA\n", "line 1: no record type 06"},
        {"a.hex", ":01000000 FF\n", "line 1: the record is cut off"},
        {"a.hex", ":01000000GGFF\n", "line 1: a record is hexadecimal digits"},
        {"a.hex", "0400000001000200F9\n", "line 1: a record starts with ':'"},
        {"a.hex", ":0100000001FE\n:00000001FF", "it has one byte alone of the word at 0x0000"},
        {"a.hex", ":0100000001FE\n:0100000001FE\n", "line 2: the word at 0x0000 is there twice"},
        {"a.hex", ":00000001FF\n:00000001FF\n", "line 2: the file goes on behind its end record"},
        {"a.hex", ":0100000400FB\n", "line 1: a base address has two bytes"},
        {"a.hex", ":0400000500000000F7\n:00000001FF\n", "it holds no words"},
        {"./.raw", "AB", "0000: 4241\n"},
        {"a.b/c", "AB", "0000: 4241\n"},
        {"a.hex.b", "AB", "no format"},
        {"a.txt", "\177ELF\1\1",
         "it is an ELF file; 'objcopy -O ihex FILE FILE.hex' makes Intel HEX of it"},
        {"a.bin", "S0030000FC\n",
         "it holds S-records; 'objcopy -I srec -O ihex FILE FILE.hex' makes Intel HEX of them"},
        {"-", ":0400000001000200F9\n", "it is Intel HEX; give --format hex"},
        {"script", "", "there are no actions in it"},
        {"script", "read 0", "line 1: the line reads 'read ADDR COUNT'"},
        {"script", "\nread 0 65536",
         "line 2: '65536' is not a number from 1 to 65535 (decimal or 0x...)"},
        {"script", "write 0", "line 1: the line reads 'write ADDR WORDS...'"},
        {"script", "write 0 0x10000",
         "line 1: '0x10000' is not a number from 0 to 65535 (decimal or 0x...)"},
        {"script", "set SPIMUL 3", "line 1: the line reads 'set NAME=VALUE'"},
        {"script", "erase", "line 1: no action 'erase'; there are read, write, set"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(read(test.file, test.contents, test.endian), test.expected) << test.contents;
}

TEST(Formats, IntelHexRecordsEndWithTheirBase) {
    const ImageFormat& hex = *formatByName("hex");
    const Segments image = formatByName("text")->parse("7ffe: 1 2 3", Endian::little);
    EXPECT_EQ(hex.print(image, Endian::little),
              ":04FFFC0001000200FE\n:020000040001F9\n:020000000300FB\n:00000001FF\n");
}

}  // namespace
}  // namespace wren
