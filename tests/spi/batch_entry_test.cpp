#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "wrenlink/batch.h"

namespace wrenlink {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Entry {
    std::uint16_t code;
    std::uint16_t first;   // address, or 1 for write bits
    std::uint16_t second;  // count, or bits
    Bytes bytes;
    std::uint32_t requestBytes;
    std::uint32_t replyBytes;
};

void build(const Entry& entry, std::uint8_t* position, std::uint32_t& requestBytes,
           std::uint32_t& replyBytes) {
    static const std::vector<std::uint16_t> kWords = {0x0102, 0xFF00, 0x00FF};
    switch (entry.code) {
        case 0x0100:
            return BuildRead(position, entry.first, entry.second, requestBytes, replyBytes);
        case 0x0200:
            return BuildWrite(position, entry.first, entry.second, kWords.data(), requestBytes,
                              replyBytes);
        default:
            return BuildSetVar(position, entry.first != 0, entry.second, requestBytes, replyBytes);
    }
}

TEST(BatchEntry, HasItsBytesAndSizes) {
    const Entry entries[] = {
        {0x0100, 0x1234, 0x0002, {0x01, 0x00, 0x12, 0x34, 0x00, 0x02}, 6, 10},
        {0x0100, 0xFFFF, 505, {0x01, 0x00, 0xFF, 0xFF, 0x01, 0xF9}, 6, 1016},
        {0x0100, 0, 0, {0x01, 0x00, 0, 0, 0, 0}, 6, 6},
        {0x0200, 0x00FE, 3, {0x02, 0, 0, 0xFE, 0, 3, 1, 2, 0xFF, 0, 0, 0xFF}, 12, 0},
        {0x0F00, 0, 0x0140, {0x0F, 0x00, 0x00, 0x00, 0x01, 0x40}, 6, 0},
        {0x0F00, 1, 0xFFFF, {0x0F, 0x00, 0x00, 0x01, 0xFF, 0xFF}, 6, 0},
    };
    for (const Entry& entry : entries) {
        SCOPED_TRACE(testing::PrintToString(entry.bytes));
        for (const bool measureOnly : {true, false}) {
            Bytes buffer(entry.bytes.size() + 4, 0xEE);
            std::uint32_t requestBytes = 0;
            std::uint32_t replyBytes = 0;
            build(entry, measureOnly ? nullptr : buffer.data(), requestBytes, replyBytes);
            EXPECT_EQ(requestBytes, entry.requestBytes);
            EXPECT_EQ(replyBytes, entry.replyBytes);
            Bytes expected(buffer.size(), 0xEE);
            if (!measureOnly) std::copy(entry.bytes.begin(), entry.bytes.end(), expected.begin());
            EXPECT_EQ(buffer, expected);
        }
    }
}

}  // namespace
}  // namespace wrenlink
