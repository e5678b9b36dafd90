// How a command of the tool ends: the exit codes, and the exception that carries a failure to
// main().
//
// Threads: plain values.
#ifndef WREN_FAILURE_H
#define WREN_FAILURE_H

#include <stdexcept>
#include <string>

namespace wren {

// The exit codes that scripts rely on.
enum class ExitCode : int {
    done = 0,
    failed = 1,         // the operation failed
    usage = 2,          // the command line makes no sense
    noAdapter = 3,      // no such adapter
    differs = 4,        // chip memory differs from what was written
    unreachable = 5,    // the adapter is busy, unplugged or silent
    interrupted = 130,  // the user stopped it, with Ctrl-C
};

// A failure that ends the command. what() is one line without a line break.
class Failure : public std::runtime_error {
   public:
    // A failure that the tool found itself; errorCode() is 0.
    Failure(ExitCode exitCode, const std::string& text)
        : std::runtime_error(text), exitCode_(exitCode) {}
    // A failure that the library reported with a code above 0.
    Failure(ExitCode exitCode, const std::string& text, int errorCode)
        : std::runtime_error(text), exitCode_(exitCode), errorCode_(errorCode) {}

    ExitCode exitCode() const noexcept { return exitCode_; }
    int errorCode() const noexcept { return errorCode_; }

   private:
    ExitCode exitCode_;
    int errorCode_ = 0;
};

}  // namespace wren

#endif
