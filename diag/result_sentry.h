// Trace scopes of the library: a plain one, and one that prints the function's result on exit.
//
//     int Quill_Stream_SetMode(...) {
//         int result = 0;
//         const ResultTrace<int> trace(result);
//         ...
//         return result = 1;
//     }
//
// The result is read when the scope closes, so every return assigns it.
#ifndef WRENLINK_DIAG_RESULT_SENTRY_H
#define WRENLINK_DIAG_RESULT_SENTRY_H

#include <type_traits>

#include "diag/message_handler.h"
#include "wrenlink/spifns.h"

namespace wrenlink {

// The message group of this library.
inline constexpr auto kMessageGroup = static_cast<CMessageHandler::GroupEnum>(101);

// The handler for a function of this library.
inline CMessageHandler& messageHandler(const char* function) {
    CTheMsgHnd::Instance();
    return CTheMsgHnd::GetAppropriateHandler(kMessageGroup, function, false);
}

// Whether anybody would notice a trace scope or a message. A component without IsListening() always
// does.
template <class Component = CTheMsgHnd>
bool isTraced() {
    if constexpr (requires { Component::IsListening(); })
        return Component::IsListening();
    else
        return true;
}

// How the exit line shows a result: the format, with the function's name as its first argument, and
// the value to pass.
template <class T>
struct ResultText;

template <>
struct ResultText<unsigned char> {
    static constexpr const char* kFormat = "<- %s [returning %d]";
    static int value(unsigned char result) { return result; }
};
template <>
struct ResultText<unsigned short> {
    static constexpr const char* kFormat = "<- %s [returning %d]";
    static int value(unsigned short result) { return result; }
};
template <>
struct ResultText<int> {
    static constexpr const char* kFormat = "<- %s [returning %d]";
    static int value(int result) { return result; }
};
template <>
struct ResultText<unsigned int> {
    static constexpr const char* kFormat = "<- %s [returning %u]";
    static unsigned int value(unsigned int result) { return result; }
};
template <>
struct ResultText<const char*> {
    static constexpr const char* kFormat = "<- %s [returning \"%s\"]";
    static const char* value(const char* result) { return result; }
};
template <>
struct ResultText<spifns_xap_state> {
    static constexpr const char* kFormat = "<- %s [returning %d]";
    static int value(spifns_xap_state result) { return static_cast<int>(result); }
};
template <>
struct ResultText<bool> {
    static constexpr const char* kFormat = "<- %s [returning %s]";
    static const char* value(bool result) { return result ? "true" : "false"; }
};

// A trace scope whose exit line shows *result as it is when the scope closes.
template <class T>
class CDebugSentryWithReturn : public CDebugSentry {
   public:
    CDebugSentryWithReturn(CMessageHandler* handler, unsigned long line, const char* file,
                           const char* function, const T* result)
        : CDebugSentry(handler, line, file, function), result_(result) {}
    ~CDebugSentryWithReturn() override { CheckPrintExit(); }

   protected:
    void PrintExit() override {
        if (exitPrinted_) return;
        handler_->DebugOutputInHandler(0, false, true, function_, file_, line_,
                                       ResultText<T>::kFormat, function_,
                                       ResultText<T>::value(*result_));
        exitPrinted_ = true;
    }

   private:
    const T* result_;
};

// Opens a plain trace scope for the function that declares it.
class Trace {
   public:
    explicit Trace(const char* function = __builtin_FUNCTION(), const char* file = __builtin_FILE(),
                   unsigned long line = __builtin_LINE())
        : sentry_(&messageHandler(function), line, file, function) {}

   private:
    CDebugSentry sentry_;
};

// Opens a trace scope for the function that declares it and whose result the variable holds.
template <class T>
class ResultTrace {
   public:
    explicit ResultTrace(const T& result, const char* function = __builtin_FUNCTION(),
                         const char* file = __builtin_FILE(), unsigned long line = __builtin_LINE())
        : sentry_(&messageHandler(function), line, file, function, &result) {}

   private:
    CDebugSentryWithReturn<T> sentry_;
};

}  // namespace wrenlink

#endif
