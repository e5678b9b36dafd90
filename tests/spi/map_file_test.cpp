#include "quill/map_file.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace wrenlink {
namespace {

using namespace std::string_literals;

// Two adapters, with the ids 100 and 200.
const SelectionTable kEnumerated = {{0, 0}, {1, 1}, {100, 0}, {200, 1}};

// kEnumerated with some keys changed, and some removed.
SelectionTable enumeratedWith(const SelectionTable& changed, std::initializer_list<unsigned> gone) {
    SelectionTable table = changed;
    table.insert(kEnumerated.begin(), kEnumerated.end());
    for (const unsigned key : gone) table.erase(key);
    return table;
}

struct Case {
    std::string content;
    int faultyLine;
    SelectionTable changed;  // in addition to what was enumerated, or instead of it
    std::initializer_list<unsigned> gone = {};
};

const std::string kSixtyTwo = "3=100" + std::string(57, '.');

const Case kCases[] = {
    {"", 0, {}},
    {"0=200\n1=100\n", 0, {{0, 1}, {1, 0}}},
    {"0=200", 0, {{0, 1}}},
    {"0=200\r\n1=100\r\n", 0, {{0, 1}, {1, 0}}},
    {"3=100\n", 0, {{3, 0}}},
    {"5=1\n", 0, {{5, 1}}},
    {"31=200 the second one\n", 0, {{31, 1}}},
    {"0=999\n", 0, {}},
    // Signs, blanks and missing numbers.
    {" \t+3=\t +100\n", 0, {{3, 0}}},
    {"3= 7\n", 0, {}},
    {"3=\n", 0, {{3, 0}}},
    {"=1\n", 0, {{0, 1}}},
    {"-4294967295=100\n", 0, {{1, 0}}},
    {"3=-4294967295\n", 0, {{3, 1}}},
    {"3=4294967296\n", 0, {}},
    {"3 =7\n", 1, {}},
    {"-1=5\n", 1, {}},
    {"32=100\n", 1, {}},
    {"4294967296=100\n", 1, {}},
    {"\n", 1, {}},
    {"three\n", 1, {}},
    // A syntax error discards the lines before it.
    {"0=200\n\n", 2, {}},
    {"0=200\n1=100\n# comment\n", 3, {}},
    // The file is read in pieces of 63 characters.
    {kSixtyTwo + "\n5=1\n", 0, {{3, 0}, {5, 1}}},
    {kSixtyTwo + ".\n5=1\n", 2, {}},
    {kSixtyTwo + ".5=1\n", 0, {{3, 0}, {5, 1}}},
    {std::string(70000, '7'), 1, {}},
    {"3=100"s + '\0' + "rest\n5=1\n", 0, {{3, 0}, {5, 1}}},
    {"\0\x01\x7F\xFF"s, 1, {}},
    // What selects nothing takes its key with it, if a line had given it a meaning.
    {"5=1\n7=100\n7=5\n", 0, {}},
    {"5=1\n1=5\n", 0, {}, {1}},
    // A key that was removed before comes back, leading to the line's own number.
    {"5=1\n1=5\n6=1\n", 0, {{1, 6}, {6, 1}}},
    // Lines look at the table as enumerated, not at one another.
    {"0=200\n3=0\n", 0, {{0, 1}, {3, 0}}},
};

TEST(MapFile, RewritesTheSelectionTable) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.content.substr(0, 80));
        const TextFile file(std::tmpfile());
        ASSERT_NE(file, nullptr);
        ASSERT_EQ(std::fwrite(c.content.data(), 1, c.content.size(), file.get()), c.content.size());
        std::rewind(file.get());

        SelectionTable table = kEnumerated;
        EXPECT_EQ(applyMapFile(file.get(), table), c.faultyLine);
        EXPECT_EQ(table, enumeratedWith(c.changed, c.gone));
    }
}

TEST(MapFile, ThatCannotBeReadToItsEndChangesNothing) {
    const std::string path = testing::TempDir() + "wrenlink-map-file";
    ASSERT_NE(std::fputs("0=200\n", TextFile(std::fopen(path.c_str(), "w")).get()), EOF);
    const TextFile file(std::fopen(path.c_str(), "r"));
    std::fputc('x', file.get());  // marks the stream as failed
    SelectionTable table = kEnumerated;
    EXPECT_EQ(applyMapFile(file.get(), table), 0);
    EXPECT_EQ(table, kEnumerated);
    std::remove(path.c_str());
}

}  // namespace
}  // namespace wrenlink
