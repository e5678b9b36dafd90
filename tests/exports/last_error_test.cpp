// The thread's stored error: what is kept of it.
#include "quill/last_error.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/exports/host.h"

namespace wrenlink::test {
namespace {

TEST(LastError, IsWhatWasStoredAndAppended) {
    const auto store = [](int code, std::uint32_t address, const std::string& text) {
        return [=] { return Quill_SetLastError(code, address, "%s", text.c_str()); };
    };
    const auto append = [](const char* text) {
        return [=] { return Quill_AppendToLastError(text); };
    };
    const std::string full(1023, 'x');
    const std::string almostFull(1020, 'x');
    const struct {
        std::function<int()> act;
        int result;
        Failure stored;
    } steps[] = {
        {append("late"), 0, {0, 0, ": late"}},
        {store(265, 0x12345, "cause 1"), 1, {265, 0x12345, "cause 1"}},
        {append(""), 1, {265, 0x12345, "cause 1"}},
        {append(nullptr), 1, {265, 0x12345, "cause 1"}},
        {append("100%s"), 1, {265, 0x12345, "cause 1: 100%s"}},
        {store(0, 7, "no error"), 0, {0, 7, "no error"}},
        {store(514, 0x12345, full + "y"), 1, {514, 0x12345, full}},
        {append("lost"), 1, {514, 0x12345, full}},
        {store(514, 0x12345, almostFull), 1, {514, 0x12345, almostFull}},
        {append("cut"), 1, {514, 0x12345, almostFull + ": c"}},
    };
    spifns_clear_last_error();
    for (const auto& step : steps) {
        EXPECT_EQ(step.act(), step.result);
        EXPECT_EQ(lastFailure(), step.stored);
    }
    std::uint16_t low = 0;
    EXPECT_EQ(spifns_get_last_error(&low, nullptr), 514);
    EXPECT_EQ(low, 0x2345);
    spifns_clear_last_error();
    spifns_clear_last_error();
    EXPECT_EQ(lastFailure(), Failure());
    EXPECT_EQ(spifns_get_last_error(&low, nullptr), 0);
    EXPECT_EQ(low, 0);
}

}  // namespace
}  // namespace wrenlink::test
