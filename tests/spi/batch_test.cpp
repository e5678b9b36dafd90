#include "wrenlink/batch.h"

#include <gtest/gtest.h>

#include "quill/last_error.h"

namespace wrenlink {
namespace {

// Nobody above asks for such actions; the command's buffer would not hold them.
TEST(Batch, RefusesWhatFitsNoCommand) {
    CUsbStreamData stream;
    std::uint16_t words[506] = {};
    for (const std::uint32_t type : {SPIFNS_READ, SPIFNS_WRITE}) {
        SpiAction action{};
        action.type = type;
        action.u.memory.length = std::size(words);
        action.u.memory.data = words;
        EXPECT_EQ(StreamSequence(stream, {&action, 1}), 1);
        EXPECT_EQ(Quill_GetLastError(nullptr, nullptr), 266U);
    }
}

}  // namespace
}  // namespace wrenlink
