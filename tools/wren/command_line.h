// The command line: what it may hold, and the command that it names.
//
// Threads: used by the main thread.
#ifndef WREN_COMMAND_LINE_H
#define WREN_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "commands.h"

namespace wren {

// What holds for the run as a whole.
struct RunOptions {
    bool json = false;
    int verbosity = 0;  // 1: all debug text; 2: the library's full debug text, too
    std::string logFile;
    unsigned simulatedAdapters = 0;
    std::string captureFile;  // of what travels to and from the simulated adapters
};

class CommandLine {
   public:
    explicit CommandLine(Context& context);
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // Throws a usage Failure. True when there is a command to run; help and the version are printed
    // here.
    bool parse(std::vector<std::string> arguments);

    const RunOptions& options() const noexcept { return options_; }
    void run() const { command_(); }

   private:
    CLI::App* add(const char* name, const char* purpose, std::function<void()> command);
    CLI::App* group(const char* name);
    void addSetting(const char* option, const char* variable, const char* metavar,
                    const char* purpose);
    void addSource(CLI::App* command, ImageSource& source);
    void addRunOptions();
    void addConnectionOptions();
    void addInspection();
    void addReading();
    void addWriting();
    void addVariables();
    void addChipCommands();
    void requireKnownCommand() const;

    Context& context_;
    CLI::App app_{"Reads, writes and inspects a Marigold chip through a Quill adapter.", "wren"};
    RunOptions options_;
    ReadRequest read_;
    WriteRequest write_;
    CompareRequest compare_;
    FillRequest fill_;
    DumpRequest dump_;
    MgcmdRequest mgcmd_;
    SpeedRequest speed_;
    std::string name_;
    std::vector<std::string> names_;
    std::function<void()> command_;
};

}  // namespace wren

#endif
