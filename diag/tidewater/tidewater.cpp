// A message handler that writes to the log of log.h: our stand-in for the Tidewater library.
// Without a log every call is one read of an atomic, and nothing is allocated either way.
//
// Profile marks and error messages come without a place of their own. They are shown at the latest
// trace scope of the function whose handler they are given to.
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstring>

#include "diag/message_handler.h"
#include "diag/tidewater/log.h"

namespace {

constexpr const char* kUnknown = "-";

const char* orUnknown(const char* text) { return text == nullptr ? kUnknown : text; }

// The handler of one function, or of all that the table has no room for.
class FunctionHandler : public CMessageHandler {
   public:
    // Whether this is the function's handler; a free one becomes so. The name is kept, not copied:
    // it is a literal of the module that tidewater is part of.
    bool serves(const char* function) {
        const char* mine = nullptr;
        if (function_.compare_exchange_strong(mine, function)) return true;
        return std::strcmp(mine, function) == 0;
    }
    void setPlace(const char* file, unsigned long line) {
        file_.store(file, std::memory_order_relaxed);
        line_.store(line, std::memory_order_relaxed);
    }
    tidewater::Place place() const {
        return {orUnknown(function_), orUnknown(file_), line_.load(std::memory_order_relaxed)};
    }

   private:
    std::atomic<const char*> function_{nullptr};
    std::atomic<const char*> file_{nullptr};
    std::atomic<unsigned long> line_{0};
};

// More than the library has traced functions.
constinit std::array<FunctionHandler, 128> functionHandlers;
constinit FunctionHandler commonHandler;

FunctionHandler& handlerOf(const char* function) {
    for (FunctionHandler& handler : functionHandlers) {
        if (handler.serves(function)) return handler;
    }
    return commonHandler;
}

}  // namespace

void CMessageHandler::DebugOutputInHandler(unsigned long, bool, bool, const char* function,
                                           const char* file, unsigned long line, const char* format,
                                           ...) {
    if (!CTheMsgHnd::IsListening()) return;
    std::va_list arguments;
    va_start(arguments, format);
    tidewater::writeLineList({orUnknown(function), orUnknown(file), line}, format, arguments);
    va_end(arguments);
}

void CMessageHandler::DebugOutputProfile(unsigned long level) {
    if (!CTheMsgHnd::IsListening()) return;
    tidewater::writeLine(static_cast<FunctionHandler*>(this)->place(), "profile mark %lu", level);
}

bool CMessageHandler::SetErrorMsg(short code, const std::string& text) {
    if (!CTheMsgHnd::IsListening()) return true;
    tidewater::writeLine(static_cast<FunctionHandler*>(this)->place(), "error %d: %s", code,
                         text.c_str());
    return true;
}

void CMessageHandler::PrintEntryLine(const char* function, const char* file, unsigned long line) {
    static_cast<FunctionHandler*>(this)->setPlace(file, line);
    tidewater::writeLine({orUnknown(function), orUnknown(file), line}, "-> %s",
                         orUnknown(function));
}

void CMessageHandler::PrintExitLine(const char* function, const char* file, unsigned long line) {
    tidewater::writeLine({orUnknown(function), orUnknown(file), line}, "<- %s",
                         orUnknown(function));
}

constinit bool CTheMsgHnd::listening_ = false;
constinit CTheMsgHnd CTheMsgHnd::silent_;
constinit CMessageHandler& CTheMsgHnd::silentHandler_ = commonHandler;

CTheMsgHnd& CTheMsgHnd::ListeningInstance() { return silent_; }

CMessageHandler& CTheMsgHnd::ListeningHandler(CMessageHandler::GroupEnum, const char* name, bool) {
    return handlerOf(orUnknown(name));
}

bool CTheMsgHnd::DebugActivated() { return IsListening(); }
