// Trace scopes of the library: a plain one, and one that prints the function's result on exit.
//
//     int Quill_Stream_SetMode(...) {
//         int result = 0;
//         const ResultTrace<int> trace(result);
//         ...
//         return result = 1;
//     }
//
// The result is read when the scope closes, so every return assigns it. While nobody listens, a
// scope is one read of a variable and calls nothing.
#ifndef WRENLINK_DIAG_RESULT_SENTRY_H
#define WRENLINK_DIAG_RESULT_SENTRY_H

#include <optional>
#include <type_traits>

#include "diag/message_handler.h"

namespace wrenlink {

// The message group of this library.
inline constexpr auto kMessageGroup = static_cast<CMessageHandler::GroupEnum>(101);

// The handler for a function of this library. Cold, since it is asked for while somebody listens.
[[gnu::cold]] inline CMessageHandler& messageHandler(const char* function, bool flag = false) {
    CTheMsgHnd::Instance();
    return CTheMsgHnd::GetAppropriateHandler(kMessageGroup, function, flag);
}

// How the exit line shows a result: the format, with the function's name as its first argument, and
// the value to pass.
template <class T>
struct ResultText {
    static_assert(sizeof(T) < sizeof(int) || std::is_same_v<T, int> || std::is_enum_v<T>);
    static constexpr const char* kFormat = "<- %s [returning %d]";
    static int value(T result) { return static_cast<int>(result); }
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

// The sentry of a scope, made in the place of the result; none while nobody listens.
template <class Sentry, class... Result>
std::optional<Sentry> openScope(const char* function, const char* file, unsigned long line,
                                const Result*... result) {
    if (!isTraced) return std::nullopt;
    return std::optional<Sentry>(std::in_place, &messageHandler(function), line, file, function,
                                 result...);
}

// Opens a plain trace scope for the function that declares it.
class Trace {
   public:
    explicit Trace(const char* function = __builtin_FUNCTION(), const char* file = __builtin_FILE(),
                   unsigned long line = __builtin_LINE())
        : sentry_(openScope<CDebugSentry>(function, file, line)) {}

   private:
    std::optional<CDebugSentry> sentry_;
};

// Opens a trace scope for the function that declares it and whose result the variable holds.
template <class T>
class ResultTrace {
   public:
    explicit ResultTrace(const T& result, const char* function = __builtin_FUNCTION(),
                         const char* file = __builtin_FILE(), unsigned long line = __builtin_LINE())
        : sentry_(openScope<CDebugSentryWithReturn<T>>(function, file, line, &result)) {}

   private:
    std::optional<CDebugSentryWithReturn<T>> sentry_;
};

}  // namespace wrenlink

#endif
