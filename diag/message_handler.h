// What the library wants of the Tidewater message-handler library: trace scopes, debug output,
// profile marks and an error slot. That library is a component of its own, linked in as the target
// tidewater; diag/tidewater/ holds our stand-in for it. Whoever links the real one instead has to
// provide what is declared here, and nothing else of ours changes.
//
// Everything may be called from any thread. Texts, the names of functions and files included, are
// read during the call that they are given to, and by a trace scope until it closes. They are
// literals here, but the component must not rely on that: what it wants to know later it copies.
#ifndef WRENLINK_DIAG_MESSAGE_HANDLER_H
#define WRENLINK_DIAG_MESSAGE_HANDLER_H

#include <string>

// One group's outlet for messages.
class CMessageHandler {
   public:
    enum GroupEnum : int {};

    // Writes a debug line, printf-style. Result traces pass 0, false, true; other messages 3,
    // false, false.
    void DebugOutputInHandler(unsigned long level, bool flag, bool isResult, const char* function,
                              const char* file, unsigned long line, const char* format, ...)
        __attribute__((format(printf, 8, 9)));
    // Marks a point in time.
    void DebugOutputProfile(unsigned long level);
    // Keeps an error text; the result has no meaning for callers.
    bool SetErrorMsg(short code, const std::string& text);
};

// The one instance of the component in a process.
class CTheMsgHnd {
   public:
    static CTheMsgHnd& Instance();
    // The handler for a traced function; it stays valid while a trace scope holds it.
    static CMessageHandler& GetAppropriateHandler(CMessageHandler::GroupEnum group,
                                                  const char* name, bool flag);
    // Whether optional output is wanted now.
    static bool DebugActivated();
};

// A trace scope: construction enters a function, destruction leaves it.
class CDebugSentry {
   public:
    CDebugSentry(CMessageHandler* handler, unsigned long line, const char* file,
                 const char* function);
    CDebugSentry(const CDebugSentry&) = delete;
    CDebugSentry& operator=(const CDebugSentry&) = delete;
    // Prints the exit line unless exitPrinted_ is set.
    virtual ~CDebugSentry();

   protected:
    // Calls PrintExit() when the exit is to be traced; for destructors of derived classes.
    void CheckPrintExit();
    virtual void PrintExit();

    CMessageHandler* handler_;
    unsigned int line_;
    bool exitPrinted_ = false;
    const char* file_;
    const char* function_;
};

namespace wrenlink {

// Whether anybody listens to scopes and messages; while nobody does, the library makes none. Not
// the component's own: one that knows sets it before the first scope opens, others leave it as it
// is.
inline constinit bool isTraced = true;

}  // namespace wrenlink

#endif
