// A message handler that keeps what it is told, for tests; they link it in tidewater's place. One
// thread traces and looks.
#ifndef WRENLINK_TESTS_SUPPORT_RECORDING_HANDLER_H
#define WRENLINK_TESTS_SUPPORT_RECORDING_HANDLER_H

#include <string>
#include <vector>

#include "diag/message_handler.h"

namespace wrenlink::test {

enum class MessageKind {
    instance,    // CTheMsgHnd::Instance
    getHandler,  // GetAppropriateHandler: group, function, flag
    entry,       // a trace scope opened: function, file, line
    exit,        // a plain trace scope closed: function, file, line
    output,      // DebugOutputInHandler: all but code
    profile,     // DebugOutputProfile: level
    error,       // SetErrorMsg: code, text
};

// One call; members that its kind does not have keep these values.
struct Message {
    MessageKind kind{};
    int group = 0;
    unsigned long level = 0;
    bool flag = false;
    bool isResult = false;
    std::string function{};
    std::string file{};
    unsigned long line = 0;
    std::string text{};  // as formatted
    int code = 0;
};

// What was recorded since the start or the last clearMessages(), in order. Consultations of
// DebugActivated() are not recorded.
const std::vector<Message>& messages();
void clearMessages();

// What DebugActivated() answers: false at first.
void setDebugActivated(bool activated);

}  // namespace wrenlink::test

#endif
