// A message handler that writes to the log of log.h: our stand-in for the Tidewater library.
// Nothing is allocated.
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

const char* orUnknown(const char* text) { return text == nullptr ? "-" : text; }

// Copies of the texts that outlast the calls they came with: names of functions and files. Without
// a lock, which a thread that ends in the middle of an exit would leave locked.
class KeptTexts {
   public:
    // The one copy of a text; null when there is no room left.
    const char* keep(const char* text) {
        const char* copy = nullptr;
        for (std::atomic<const char*>& place : texts_) {
            const char* kept = place.load(std::memory_order_acquire);
            if (kept == nullptr) {
                if (copy == nullptr) copy = copyOf(text);
                if (copy == nullptr || place.compare_exchange_strong(kept, copy)) return copy;
            }
            if (std::strcmp(kept, text) == 0) return kept;
        }
        return nullptr;
    }

   private:
    const char* copyOf(const char* text) {
        const std::size_t size = std::strlen(text) + 1;
        const std::size_t begin = used_.fetch_add(size, std::memory_order_relaxed);
        if (begin + size > bytes_.size()) return nullptr;
        return static_cast<const char*>(std::memcpy(&bytes_[begin], text, size));
    }

    std::array<std::atomic<const char*>, 192> texts_{};
    std::array<char, 16384> bytes_{};
    std::atomic<std::size_t> used_{0};
};
constinit KeptTexts keptTexts;

// The handler of one function, or of all that the table has no room for.
class FunctionHandler : public CMessageHandler {
   public:
    // Whether this is the handler of the function with that kept name; a free one becomes so.
    bool serves(const char* function) {
        const char* mine = nullptr;
        return function_.compare_exchange_strong(mine, function) || mine == function;
    }
    void setPlace(const char* file, unsigned long line) {
        file_ = keptTexts.keep(file);
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
    const char* const kept = keptTexts.keep(function);
    if (kept == nullptr) return commonHandler;
    for (FunctionHandler& handler : functionHandlers) {
        if (handler.serves(kept)) return handler;
    }
    return commonHandler;
}

}  // namespace

void CMessageHandler::DebugOutputInHandler(unsigned long, bool, bool, const char* function,
                                           const char* file, unsigned long line, const char* format,
                                           ...) {
    std::va_list arguments;
    va_start(arguments, format);
    tidewater::writeLineList({function, file, line}, format, arguments);
    va_end(arguments);
}

void CMessageHandler::DebugOutputProfile(unsigned long level) {
    tidewater::writeLine(static_cast<FunctionHandler*>(this)->place(), "profile mark %lu", level);
}

bool CMessageHandler::SetErrorMsg(short code, const std::string& text) {
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
    return handlerOf(name);
}

bool CTheMsgHnd::DebugActivated() { return wrenlink::isTraced; }

CDebugSentry::CDebugSentry(CMessageHandler* handler, unsigned long line, const char* file,
                           const char* function)
    : handler_(handler), line_(static_cast<unsigned int>(line)), file_(file), function_(function) {
    static_cast<FunctionHandler*>(handler)->setPlace(file, line);
    tidewater::writeLine({function, file, line}, "-> %s", function);
}

CDebugSentry::~CDebugSentry() { CDebugSentry::PrintExit(); }

void CDebugSentry::CheckPrintExit() { PrintExit(); }

void CDebugSentry::PrintExit() {
    if (exitPrinted_) return;
    tidewater::writeLine({function_, file_, line_}, "<- %s", function_);
    exitPrinted_ = true;
}
