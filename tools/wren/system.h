// What the tool wants of the operating system beyond the standard library.
//
// Threads: used by the main thread.
#ifndef WREN_SYSTEM_H
#define WREN_SYSTEM_H

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace wren::system {

// The arguments of the tool in UTF-8, without its name, from those of main().
std::vector<std::string> arguments(int argc, char** argv);

// From now on, bytes pass through the standard streams unchanged, so that lines end as they are
// written; writing to a closed pipe fails and does not end the tool, and no file takes the place of
// a standard stream that was closed when the tool started.
void prepareStandardStreams() noexcept;

// As std::signal(); but what waits for a stream does not go on waiting and fails with EINTR.
using SignalHandler = void (*)(int);
SignalHandler setSignalHandler(int signal, SignalHandler handler) noexcept;

// As std::fopen(); null with errno on failure.
std::FILE* openFile(const std::filesystem::path& path, const char* mode) noexcept;

// Whether a path leads to what is no file that another could replace, such as a device or a pipe.
bool isDevice(const std::filesystem::path& path);

// Runs the tool anew, with main()'s arguments and one more environment variable, and returns its
// exit code. Does nothing and returns -1 when the variable has that value already. On Linux, words
// may name a program that takes the tool's path and arguments behind them and runs it.
int runAgainWith(const char* variable, const char* value, char** argv,
                 std::vector<std::string> words = {});

// Where the user's settings of the tool are kept, in UTF-8.
std::string userConfiguration();

// A text of the library or of the operating system in UTF-8, which it is unless the system has an
// encoding of its own.
std::string inUtf8(const std::string& text);

// How to look at the exchanges with the simulated adapter at a port, which is the tool's own or
// serves all hosts; empty when there is no way.
std::string wayToExchanges(const std::string& port, bool own);

// Why the library may find no adapter here, and what to do about it, in one line.
std::string whyNoAdapters();

}  // namespace wren::system

#endif
