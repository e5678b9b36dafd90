// A message handler that keeps what it is told, for tests; they link it in tidewater's place. Any
// thread may call anything here.
#ifndef WRENLINK_TESTS_SUPPORT_RECORDING_HANDLER_H
#define WRENLINK_TESTS_SUPPORT_RECORDING_HANDLER_H

#include <string>
#include <thread>
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
    std::thread::id thread{};
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
std::vector<Message> messages();
std::vector<Message> messages(MessageKind kind);
void clearMessages();

// What DebugActivated() answers: false at first.
void setDebugActivated(bool activated);

}  // namespace wrenlink::test

#endif
