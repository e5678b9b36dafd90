#include "tests/diag/trace_probe.h"

#include "diag/result_sentry.h"

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

extern "C" {

int probeTraced() {
    int result = 0;
    const wrenlink::ResultTrace<int> trace(result);
    CMessageHandler& handler = wrenlink::messageHandler(__func__);
    handler.DebugOutputProfile(5);
    putOut(handler, __func__, __LINE__, "half way");
    handler.SetErrorMsg(-3, "out of paper");
    handler.DebugOutputProfile(0);
    return result = 7;
}

void probeText(const char* text) {
    const wrenlink::Trace trace;
    putOut(wrenlink::messageHandler(__func__), __func__, __LINE__, text);
}

bool probeActivated() { return CTheMsgHnd::DebugActivated(); }

}  // extern "C"
