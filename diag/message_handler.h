// The interface of the Tidewater message-handler library: trace scopes, debug output, profile marks
// and an error slot. The library is a component of its own, linked in; diag/tidewater holds our
// stand-in for it. Everything here may be called from any thread.
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

// A trace scope: construction enters a function, destruction leaves it. The texts must outlive it.
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

#endif
