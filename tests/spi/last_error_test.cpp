#include "quill/last_error.h"

#include <gtest/gtest.h>

#include <string>

#include "wrenlink/spifns.h"

namespace wrenlink {
namespace {

struct Record {
    unsigned code;
    unsigned address;
    std::string text;

    friend bool operator==(const Record&, const Record&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Record& record) {
        return out << record.code << " at " << record.address << ": " << record.text;
    }
};

Record stored() {
    Record record{0xEEEE, 0xEEEE, "not written"};
    const char* text = nullptr;
    record.code = Quill_GetLastError(&record.address, &text);
    record.text = text;
    return record;
}

class LastError : public testing::Test {
   protected:
    LastError() { Quill_ClearLastError(); }
};

TEST_F(LastError, IsWhatWasStoredAndAppended) {
    EXPECT_EQ(stored(), (Record{0, 0, ""}));
    EXPECT_EQ(Quill_AppendToLastError("late"), 0);
    EXPECT_EQ(stored(), (Record{0, 0, ": late"}));

    EXPECT_EQ(Quill_SetLastError(265, 0x12345, "%s%d", "cause ", 1), 1);
    EXPECT_EQ(stored(), (Record{265, 0x12345, "cause 1"}));
    for (const char* nothing : {"", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(Quill_AppendToLastError(nothing), 1);
        EXPECT_EQ(stored(), (Record{265, 0x12345, "cause 1"}));
    }
    EXPECT_EQ(Quill_AppendToLastError("100%"), 1);
    EXPECT_EQ(Quill_AppendToLastError("%s"), 1);
    EXPECT_EQ(stored(), (Record{265, 0x12345, "cause 1: 100%: %s"}));
    EXPECT_EQ(stored(), (Record{265, 0x12345, "cause 1: 100%: %s"}));

    EXPECT_EQ(Quill_SetLastError(0, 7, "no error"), 0);
    EXPECT_EQ(stored(), (Record{0, 7, "no error"}));
    Quill_ClearLastError();
    Quill_ClearLastError();
    EXPECT_EQ(stored(), (Record{0, 0, ""}));
}

TEST_F(LastError, ReadersStoreThroughTheirPointersOnly) {
    Quill_SetLastError(265, 0x12345, "Invalid address");
    std::uint16_t low = 0;
    std::uint32_t full = 0;
    const char* text = nullptr;
    EXPECT_EQ(spifns_get_last_error(&low, &text), 265);
    EXPECT_EQ(low, 0x2345);
    EXPECT_STREQ(text, "Invalid address");
    text = nullptr;
    EXPECT_EQ(spifns_get_last_error32(&full, &text), 265);
    EXPECT_EQ(full, 0x12345U);
    EXPECT_STREQ(text, "Invalid address");
    EXPECT_EQ(spifns_get_last_error(nullptr, nullptr), 265);
    EXPECT_EQ(spifns_get_last_error32(nullptr, nullptr), 265);

    spifns_clear_last_error();
    EXPECT_EQ(spifns_get_last_error(&low, &text), 0);
    EXPECT_EQ(low, 0);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(spifns_get_last_error32(&full, &text), 0);
    EXPECT_EQ(full, 0U);
    EXPECT_EQ(spifns_get_version(), 260U);
}

TEST_F(LastError, TextIsCutTo1023Characters) {
    const std::string longText(1500, 'x');
    Quill_SetLastError(514, 0, "%s", longText.c_str());
    EXPECT_EQ(stored().text, longText.substr(0, 1023));
    Quill_AppendToLastError("lost");
    EXPECT_EQ(stored().text, longText.substr(0, 1023));

    Quill_SetLastError(514, 0, "%s", longText.substr(0, 1020).c_str());
    Quill_AppendToLastError("cut");
    EXPECT_EQ(stored().text, longText.substr(0, 1020) + ": c");
}

}  // namespace
}  // namespace wrenlink
