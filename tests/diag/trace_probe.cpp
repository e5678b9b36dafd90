// A module that calls the message handler as traced functions do. While its static objects are
// destroyed, one more function puts out "the module goes".
#include "diag/result_sentry.h"

#define PROBE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

void putOut(CMessageHandler& handler, const char* function, unsigned long line, const char* text) {
    handler.DebugOutputInHandler(3, false, false, function, __FILE__, line, "%s", text);
}

struct Farewell {
    ~Farewell() {
        const wrenlink::Trace trace("farewell");
        putOut(wrenlink::messageHandler("farewell"), "farewell", __LINE__, "the module goes");
    }
} const farewell;

}  // namespace

// Returns 7, with a debug line, two profile marks and an error.
PROBE_EXPORT int probeTraced() {
    int result = 0;
    const wrenlink::ResultTrace<int> trace(result);
    CMessageHandler& handler = wrenlink::messageHandler(__func__);
    handler.DebugOutputProfile(5);
    putOut(handler, __func__, __LINE__, "half way");
    handler.SetErrorMsg(-3, "out of paper");
    handler.DebugOutputProfile(0);
    return result = 7;
}

// Puts out one debug line with this text, which may be null.
PROBE_EXPORT void probeText(const char* text) {
    const wrenlink::Trace trace;
    putOut(wrenlink::messageHandler(__func__), __func__, __LINE__, text);
}

// Whether debug output is wanted.
PROBE_EXPORT bool probeActivated() { return CTheMsgHnd::DebugActivated(); }
