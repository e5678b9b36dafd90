// The interface of the Tidewater message-handler library: trace scopes, debug output, profile marks
// and an error slot. The library is a component of its own, linked in; diag/tidewater holds our
// stand-in for it. Everything here may be called from any thread.
//
// Texts, the names of functions and files included, are read during the call that they are given
// to, and by a trace scope until it closes. The component keeps none of them: what it wants to know
// later it copies.
//
// While nobody listens, a trace scope calls nothing and costs next to nothing: what the component
// does then stands here, inline.
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

   private:
    friend class CDebugSentry;
    [[gnu::cold]] void PrintEntryLine(const char* function, const char* file, unsigned long line);
    [[gnu::cold]] void PrintExitLine(const char* function, const char* file, unsigned long line);
};

// The one instance of the component in a process.
class CTheMsgHnd {
   public:
    static CTheMsgHnd& Instance() { return IsListening() ? ListeningInstance() : silent_; }
    // The handler for a traced function; it stays valid while a trace scope holds it. The name need
    // not outlive the call.
    static CMessageHandler& GetAppropriateHandler(CMessageHandler::GroupEnum group,
                                                  const char* name, bool flag) {
        return IsListening() ? ListeningHandler(group, name, flag) : silentHandler_;
    }
    // Whether optional output is wanted now.
    static bool DebugActivated();
    // Whether somebody listens to trace scopes.
    static bool IsListening() { return listening_; }
    // For the component alone: tells so, before the first scope opens.
    static void Listen() { listening_ = true; }

   private:
    [[gnu::cold]] static CTheMsgHnd& ListeningInstance();
    [[gnu::cold]] static CMessageHandler& ListeningHandler(CMessageHandler::GroupEnum group,
                                                           const char* name, bool flag);

    // Never written once there may be a second thread, so it needs no lock.
    static bool listening_;
    static CTheMsgHnd silent_;
    static CMessageHandler& silentHandler_;
};

// A trace scope: construction enters a function, destruction leaves it. Its texts must outlive it.
// One that opens while nobody listens counts as printed from the start, and keeps nothing else.
class CDebugSentry {
   public:
    CDebugSentry(CMessageHandler* handler, unsigned long line, const char* file,
                 const char* function) {
        if (!CTheMsgHnd::IsListening()) return;
        handler_ = handler;
        line_ = static_cast<unsigned int>(line);
        exitPrinted_ = false;
        file_ = file;
        function_ = function;
        handler->PrintEntryLine(function, file, line);
    }
    CDebugSentry(const CDebugSentry&) = delete;
    CDebugSentry& operator=(const CDebugSentry&) = delete;
    // Prints the exit line unless exitPrinted_ is set.
    virtual ~CDebugSentry() {
        if (!exitPrinted_) handler_->PrintExitLine(function_, file_, line_);
    }

   protected:
    // Calls PrintExit() when the exit is to be traced; for destructors of derived classes.
    void CheckPrintExit() {
        if (!exitPrinted_) PrintExit();
    }
    virtual void PrintExit() {
        if (exitPrinted_) return;
        handler_->PrintExitLine(function_, file_, line_);
        exitPrinted_ = true;
    }

    CMessageHandler* handler_ = nullptr;
    unsigned int line_ = 0;
    bool exitPrinted_ = true;
    const char* file_ = nullptr;
    const char* function_ = nullptr;
};

#endif
