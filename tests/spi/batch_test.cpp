#include "wrenlink/batch.h"

#include <gtest/gtest.h>

#include "quill/last_error.h"

namespace wrenlink {
namespace {

// Nobody above asks for such steps; the command's buffer would not hold them.
TEST(Batch, RefusesWhatFitsNoCommand) {
    CUsbStreamData stream;
    std::uint16_t words[506] = {};
    for (const std::uint32_t type : {SPIFNS_READ, SPIFNS_WRITE}) {
        const Step step = {type, 0, std::size(words), words};
        EXPECT_EQ(StreamSequence(stream, {&step, 1}), 1);
        EXPECT_EQ(Quill_GetLastError(nullptr, nullptr), 266U);
    }
}

}  // namespace
}  // namespace wrenlink
