// wren: reads, writes and inspects a Marigold chip through a Quill adapter. This file holds the
// course of a run; commands.h says what each command does, command_line.h how it is told.

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>

#include "command_line.h"
#include "commands.h"
#include "failure.h"
#include "simulation.h"
#include "system.h"
#include "terminal.h"

namespace {

using namespace wren;

// What stands behind "error": code, text, how far the command got, and the next thing to try.
std::string lineOf(const Failure& failure) {
    std::string line;
    if (failure.errorCode() != 0) line += fmt::format(" {}", failure.errorCode());
    line += fmt::format(": {}", failure.what());
    if (!failure.words().empty()) line += fmt::format(" at {}", addressesOf(failure.words()));
    if (!failure.progress().empty()) line += fmt::format(" ({})", failure.progress());
    if (!failure.hint().empty()) line += fmt::format("; {}", failure.hint());
    // Names and contents of files may hold what would move the cursor.
    const auto isControl = [](unsigned char c) { return c < ' ' || c == 0x7F; };
    std::ranges::replace_if(line, isControl, '?');
    return line;
}

// Tells the user.
void report(const Failure& failure, const std::string& mark = "") {
    if (failure.exitCode() == ExitCode::unheard) return;
    const std::string error = terminal::styled(stderr, terminal::Style::error, "error");
    terminal::tell(fmt::format("wren: {}{}{}\n", mark, error, lineOf(failure)));
}

void runCommand(const ParsedCommand& command, Context& context, char** argv) {
    const RunOptions& options = command.options;
    context.debugText.show(options.verbosity);
    if (!options.logFile.empty()) context.debugText.logTo(options.logFile);
    if (!options.recordFile.empty()) context.record.open(options.recordFile);
    std::shared_ptr<void> adapters;
    if (options.simulatedAdapters > 0) {
        adapters = simulate(options.simulatedAdapters, options.captureFile, argv);
        context.isSimulated = true;
    }
    if (const Work work = command.prepare()) workWithAdapters(context, work);
}

// Tells the user and the log how the command ended.
ExitCode conclude(Context& context, std::optional<Failure> failure) {
    const auto& reports = context.output.reports();
    const auto fail = [&](const Failure& found, const std::string& mark = "") {
        report(found, mark);
        context.debugText.note(fmt::format("wren: {}error{}", mark, lineOf(found)));
    };
    const auto unwritten = failureOf([&] { context.output.finish(failure); });
    for (const Report& part : reports)
        if (part.failure()) fail(*part.failure(), part.name());
    if (worstOf(reports, failure) == ExitCode::done) failure = unwritten;
    if (failure) fail(*failure);
    const ExitCode worst = worstOf(reports, failure);
    if (worst != ExitCode::done) return worst;
    context.debugText.note("wren: done");
    failure = failureOf([&] { context.debugText.finish(); });
    if (failure) report(*failure);
    return worstOf({}, failure);
}

int run(int argc, char** argv) {
    system::prepareStandardStreams();
    Context context;
    const std::vector<std::string> arguments = system::arguments(argc, argv);
    if (std::ranges::count(arguments, "--json") > 0) context.output.useJson();
    ParsedCommand command;
    auto failure = failureOf([&] { command = parseCommandLine(context, arguments); });
    if (command.prepare) {
        // The library decides about its full debug text when it is loaded.
        if (command.options.verbosity > 1) {
            const int exitCode = system::runAgainWith("SPIDEBUG_FULL", "ON", argv);
            if (exitCode >= 0) return exitCode;
        }
        failure = failureOf([&] { runCommand(command, context, argv); });
    }
    return static_cast<int>(conclude(context, std::move(failure)));
}

}  // namespace

int main(int argc, char** argv) {
    int result = static_cast<int>(ExitCode::failed);
    const auto failure = failureOf([&] { result = run(argc, argv); });
    if (failure) report(*failure);
    return result;
}
