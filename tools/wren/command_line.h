// The command line: what it may hold, and the command that it names.
//
// Threads: used by the main thread.
#ifndef WREN_COMMAND_LINE_H
#define WREN_COMMAND_LINE_H

#include <functional>
#include <string>
#include <vector>

#include "commands.h"

namespace wren {

// What holds for the run as a whole.
struct RunOptions {
    bool json = false;
    int verbosity = 0;  // as DebugText has it
    std::string logFile;
    std::string recordFile;
    unsigned simulatedAdapters = 0;
    std::string captureFile;  // of what travels to and from the simulated adapters
};

// A command line that makes sense.
struct ParsedCommand {
    RunOptions options;
    std::function<Work()> prepare;  // empty after help or the version, which are printed by then
};

// Throws a usage Failure. The context receives the connection and the command's name.
ParsedCommand parseCommandLine(Context& context, std::vector<std::string> arguments);

}  // namespace wren

#endif
