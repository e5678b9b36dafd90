// The adapters that a command works with: which ones the user means, and the work with all of them
// at the same time.
//
// Threads: the work with an Adapter is done by one thread, that with several by one thread each.
#ifndef WREN_ADAPTER_H
#define WREN_ADAPTER_H

#include <functional>
#include <string>
#include <vector>

#include "debug_text.h"
#include "output.h"
#include "progress.h"
#include "session.h"
#include "terminal.h"
#include "turn.h"

namespace wren {

// Which adapters a command works with, and how.
struct Connection {
    // Selection keys, adapter ids or device ids, with commas between them, or "all"; the only
    // adapter that there is when empty.
    std::string port;
    std::vector<Setting> settings;  // made in this order once the adapter is selected
    Turn::Terms turn;

    bool namesSeveral() const { return port == "all" || port.find(',') != std::string::npos; }
};

// What every command is given.
struct Context {
    Connection connection;
    ProgressForm progress = ProgressForm::bar;
    bool isSimulated = false;  // the adapters are the tool's own
    DebugText debugText;
    Output output;
    LineFile record;
};

// An adapter in a command's hands.
struct Adapter {
    Adapter(Context& commandContext, Report& adapterReport)
        : context(commandContext),
          report(adapterReport),
          session(context.debugText),
          turn(context.connection.turn, context.debugText) {}

    Context& context;
    Report& report;
    Session session;
    Turn turn;
    terminal::StatusLine status;
};

// What a command does with an adapter. It throws Failure.
struct Work : std::function<void(Adapter&)> {
    using function::function;
    bool isBrief = false;  // one exchange, in which nobody can come between
};

inline Work briefly(Work work) {
    work.isBrief = true;
    return work;
}

// Selects each adapter that the user means, sets it up and does the work, all in one turn unless it
// is brief; a failure at one of them goes into its report and stops no other. Throws Failure when
// it is not clear which ones they are.
void workWithAdapters(Context& context, const Work& work);

}  // namespace wren

#endif
