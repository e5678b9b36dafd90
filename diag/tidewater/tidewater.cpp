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

[[gnu::noinline]] FunctionHandler& handlerOf(const char* function) {
    for (FunctionHandler& handler : functionHandlers) {
        if (handler.serves(function)) return handler;
    }
    return commonHandler;
}

// Apart from the constructor, which most often has nothing to show.
[[gnu::noinline]] void traceEntry(CMessageHandler& handler, const tidewater::Place& place) {
    static_cast<FunctionHandler&>(handler).setPlace(place.file, place.line);
    tidewater::writeLine({orUnknown(place.function), orUnknown(place.file), place.line}, "-> %s",
                         orUnknown(place.function));
}

}  // namespace

void CMessageHandler::DebugOutputInHandler(unsigned long, bool, bool, const char* function,
                                           const char* file, unsigned long line, const char* format,
                                           ...) {
    if (!tidewater::logging()) return;
    std::va_list arguments;
    va_start(arguments, format);
    tidewater::writeLineList({orUnknown(function), orUnknown(file), line}, format, arguments);
    va_end(arguments);
}

void CMessageHandler::DebugOutputProfile(unsigned long level) {
    if (!tidewater::logging()) return;
    tidewater::writeLine(static_cast<FunctionHandler*>(this)->place(), "profile mark %lu", level);
}

bool CMessageHandler::SetErrorMsg(short code, const std::string& text) {
    if (!tidewater::logging()) return true;
    tidewater::writeLine(static_cast<FunctionHandler*>(this)->place(), "error %d: %s", code,
                         text.c_str());
    return true;
}

CTheMsgHnd& CTheMsgHnd::Instance() {
    static constinit CTheMsgHnd instance;
    return instance;
}

CMessageHandler& CTheMsgHnd::GetAppropriateHandler(CMessageHandler::GroupEnum, const char* name,
                                                   bool) {
    return tidewater::logging() ? handlerOf(orUnknown(name)) : commonHandler;
}

bool CTheMsgHnd::DebugActivated() { return tidewater::logging(); }

CDebugSentry::CDebugSentry(CMessageHandler* handler, unsigned long line, const char* file,
                           const char* function)
    : handler_(handler), line_(static_cast<unsigned int>(line)), file_(file), function_(function) {
    if (tidewater::logging()) traceEntry(*handler, {function, file, line});
}

CDebugSentry::~CDebugSentry() {
    if (tidewater::logging()) CDebugSentry::PrintExit();
}

void CDebugSentry::CheckPrintExit() {
    if (tidewater::logging()) PrintExit();
}

void CDebugSentry::PrintExit() {
    if (exitPrinted_) return;
    tidewater::writeLine({orUnknown(function_), orUnknown(file_), line_}, "<- %s",
                         orUnknown(function_));
    exitPrinted_ = true;
}
