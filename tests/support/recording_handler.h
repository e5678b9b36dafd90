// A message handler that keeps what it is told, for tests; they link it in tidewater's place. One
// thread traces and looks.
#ifndef WRENLINK_TESTS_SUPPORT_RECORDING_HANDLER_H
#define WRENLINK_TESTS_SUPPORT_RECORDING_HANDLER_H

#include <string>
#include <vector>

#include "diag/message_handler.h"

namespace wrenlink::test {

// What was recorded since this was asked last, in order, a line for each call:
//
//     instance                                    CTheMsgHnd::Instance
//     handler GROUP FLAG FUNCTION                 GetAppropriateHandler
//     -> FUNCTION FILE:LINE                       a trace scope opened
//     <- FUNCTION FILE:LINE                       a plain one closed
//     <- FUNCTION FILE:LINE LEVEL FLAG TEXT       one with a result closed (DebugOutputInHandler)
//     LEVEL FLAG FUNCTION|TEXT                    other output of DebugOutputInHandler
//     mark LEVEL                                  DebugOutputProfile
//     error CODE: TEXT                            SetErrorMsg
std::vector<std::string> takeMessages();

// What DebugActivated() answers: false at first. That it is asked is not recorded.
void setDebugActivated(bool activated);

}  // namespace wrenlink::test

#endif
