// The exit line of a traced function, for each type of result, and what opening a scope calls.
#include "diag/result_sentry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/recording_handler.h"

namespace {

using wrenlink::ResultTrace;
using wrenlink::Trace;
using wrenlink::test::Message;
using wrenlink::test::MessageKind;
using wrenlink::test::messages;

template <class T>
T traced(T initial, T returned) {
    T result = initial;
    const ResultTrace<T> trace(result, "traced", "sources/traced.cpp", 42);
    return result = returned;
}

class ResultSentry : public testing::Test {
   protected:
    ResultSentry() { wrenlink::test::clearMessages(); }
};

// The compiler would complain of a null text that it can see.
const char* volatile missingText = nullptr;

TEST_F(ResultSentry, ExitLineShowsTheResultAsItIsWhenTheScopeCloses) {
    struct Case {
        std::function<void()> call;
        const char* exitLine;
    };
    using Byte = unsigned char;
    using Half = unsigned short;
    using Text = const char*;
    const Case cases[] = {
        {[] { traced<Byte>(0, 200); }, "<- traced [returning 200]"},
        {[] { traced<Half>(0, 0xFFFF); }, "<- traced [returning 65535]"},
        {[] { traced<int>(0, 1); }, "<- traced [returning 1]"},
        {[] { traced<int>(0, -2147483647 - 1); }, "<- traced [returning -2147483648]"},
        {[] { traced<unsigned>(0, 0xFFFFFFFFU); }, "<- traced [returning 4294967295]"},
        {[] { traced<Text>("", "4.000"); }, "<- traced [returning \"4.000\"]"},
        {[] { traced<Text>("", missingText); }, "<- traced [returning \"(null)\"]"},
        {[] { traced(SPIFNS_XAP_RUNNING, SPIFNS_XAP_ERROR); }, "<- traced [returning -1]"},
        {[] { traced(SPIFNS_XAP_ERROR, SPIFNS_XAP_STOPPED); }, "<- traced [returning 1]"},
        {[] { traced(false, true); }, "<- traced [returning true]"},
        {[] { traced(true, false); }, "<- traced [returning false]"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.exitLine);
        wrenlink::test::clearMessages();
        c.call();
        const Message exit = messages().back();
        EXPECT_EQ(exit.text, c.exitLine);
        EXPECT_EQ(exit.level, 0U);
        EXPECT_FALSE(exit.flag);
        EXPECT_TRUE(exit.isResult);
        EXPECT_EQ(exit.function, "traced");
        EXPECT_EQ(exit.file, "sources/traced.cpp");
        EXPECT_EQ(exit.line, 42U);
    }
}

unsigned long plainLine = 0;
void plain() {
    plainLine = __LINE__ + 1;
    const Trace trace;
}

TEST_F(ResultSentry, PlainScopeIsNamedAfterTheFunctionThatDeclaresIt) {
    plain();
    const auto list = messages();
    ASSERT_EQ(list.size(), 4U);
    const MessageKind kinds[] = {MessageKind::instance, MessageKind::getHandler, MessageKind::entry,
                                 MessageKind::exit};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(list[i].kind, kinds[i]);
    EXPECT_EQ(list[1].group, 101);
    EXPECT_FALSE(list[1].flag);
    for (std::size_t i = 1; i < 4; ++i) EXPECT_EQ(list[i].function, "plain");
    for (std::size_t i = 2; i < 4; ++i) {
        EXPECT_THAT(list[i].file, testing::EndsWith("tests/diag/result_sentry_test.cpp"));
        EXPECT_EQ(list[i].line, plainLine);
    }
}

}  // namespace
