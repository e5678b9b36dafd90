// wren: reads, writes and inspects a Marigold chip through a Quill adapter. This file holds the
// command line alone; commands.h says what each command does.

#include <fmt/format.h>
#include <wrenlink/spifns.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <functional>

#include "commands.h"
#include "failure.h"
#include "number.h"
#include "transfer.h"

namespace {

using namespace wren;

// Takes a whole number within limits, in decimal or as 0x..., and hands it on in decimal.
CLI::Validator wholeNumberIn(std::uint64_t lowest, std::uint64_t highest) {
    return {[=](std::string& text) {
                const auto number = wholeNumber(text);
                if (!number || *number < lowest || *number > highest)
                    return fmt::format("'{}' is not a number from {} to {} (decimal or 0x...)",
                                       text, lowest, highest);
                text = std::to_string(*number);
                return std::string();
            },
            ""};
}

CLI::Option* addAddress(CLI::App* command, std::uint32_t& address) {
    return command->add_option("ADDR", address, "First word, 0 to 0xffff")
        ->transform(wholeNumberIn(0, kMemoryWords - 1))
        ->type_name("");
}

template <class Count>
CLI::Option* addCount(CLI::App* command, Count& count) {
    return command->add_option("COUNT", count, "Number of words")
        ->transform(wholeNumberIn(1, kMemoryWords))
        ->type_name("");
}

std::string versionText() {
    const std::uint32_t version = spifns_get_version();
    return fmt::format("wren on wrenlink {}.{}", version >> 8, version & 0xFF);
}

// The command line: what it holds, and the command that it names.
class CommandLine {
   public:
    CommandLine() {
        app_.require_subcommand(0, 1);
        app_.set_version_flag("--version", versionText());
        app_.fallthrough();
        addConnectionOptions();
        addInspection();
        addMemory();
        addVariables();
    }

    void parse(int argc, char** argv) { app_.parse(argc, argv); }
    // Prints what --help asks for.
    void printHelp(const CLI::ParseError& request) { app_.exit(request); }
    void run() const {
        if (!command_) throw Failure(ExitCode::usage, "no command; 'wren --help' lists them");
        command_();
    }

   private:
    CLI::App* add(const char* name, const char* purpose, std::function<void()> command) {
        CLI::App* subcommand = app_.add_subcommand(name, purpose);
        subcommand->callback([this, command = std::move(command)] { command_ = command; });
        return subcommand;
    }

    // An option whose value is set as a variable of the stream.
    void addSetting(const char* option, const char* variable, const char* metavar,
                    const char* purpose) {
        app_.add_option_function<std::string>(
                option,
                [this, variable](const std::string& value) {
                    connection_.settings.push_back(makeSetting(variable, value));
                },
                purpose)
            ->type_name(metavar);
    }

    void addConnectionOptions() {
        app_.add_option("--port", connection_.port,
                        "Adapter: port number or adapter id (default 0)")
            ->transform(wholeNumberIn(0, 0xFFFFFFFF))
            ->type_name("KEY_OR_ID");
        addSetting("--mode", "QUILLMODE", "MODE", "Interface mode: SPI or JTAG");
        addSetting("--clock", "SPICLOCK", "KHZ", "SPI clock");
        addSetting("--mux", "SPIMUL", "N", "Multiplexed device, 0 to 16");
        addSetting("--read-bits", "SPICMDREADBITS", "BITS", "Command bits of reads");
        addSetting("--write-bits", "SPICMDWRITEBITS", "BITS", "Command bits of writes");
        app_.add_flag_callback(
            "-v,--verbose", [this] { connection_.debugText = DebugText::all; },
            "Show the library's debug text");
    }

    void addInspection() {
        add("ports", "List the adapters", [this] { listPorts(connection_); });
        add("info", "Show the adapter, its settings and the chip's state",
            [this] { showInfo(connection_); });
        add("xap", "Tell whether the chip's XAP processor runs",
            [this] { showXapState(connection_); });
        CLI::App* command = add("command", "Send a named command: DFU or SPISLOWER",
                                [this] { sendCommand(connection_, name_); });
        command->add_option("NAME", name_, "The command")->required()->type_name("");
    }

    void addMemory() {
        CLI::App* read = add("read", "Read words, to a file or as text",
                             [this] { readMemory(connection_, read_); });
        addAddress(read, read_.address)->required();
        addCount(read, read_.count)->required();
        read->add_option("-o,--output", read_.outputFile, "File of raw words, low byte first")
            ->type_name("FILE");

        CLI::App* write = add("write", "Write words and verify them",
                              [this] { writeMemory(connection_, write_); });
        addAddress(write, write_.address)->required();
        CLI::Option* words = write->add_option("WORDS", write_.words, "The words");
        words->transform(wholeNumberIn(0, 0xFFFF))->type_name("");
        write->add_option("-i,--input", write_.inputFile, "File of raw words, low byte first")
            ->type_name("FILE")
            ->excludes(words);
        write->add_flag_callback(
            "--no-verify", [this] { write_.verify = false; }, "Do not read back and compare");

        CLI::App* dump = add("dump", "Show words in hexadecimal and as text",
                             [this] { dumpMemory(connection_, dump_); });
        addAddress(dump, dump_.address);
        addCount(dump, dump_.count);
    }

    void addVariables() {
        CLI::App* get = add("get", "Read variables", [this] { getVariables(connection_, names_); });
        get->add_option("NAME", names_, "The variables")->required()->type_name("");
        CLI::App* set = add("set", "Set variables, in the order given",
                            [this] { setVariables(connection_, names_); });
        set->add_option("SETTING", names_, "NAME=VALUE")->required()->type_name("");
    }

    CLI::App app_{"Reads, writes and inspects a Marigold chip through a Quill adapter.", "wren"};
    Connection connection_;
    ReadRequest read_;
    WriteRequest write_;
    DumpRequest dump_;
    std::string name_;
    std::vector<std::string> names_;
    std::function<void()> command_;
};

ExitCode report(const Failure& failure) {
    const std::string code =
        failure.errorCode() != 0 ? fmt::format(" {}", failure.errorCode()) : std::string();
    fmt::print(stderr, "wren: error{}: {}\n", code, failure.what());
    return failure.exitCode();
}

ExitCode run(int argc, char** argv) {
    CommandLine commandLine;
    try {
        commandLine.parse(argc, argv);
        commandLine.run();
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) return report(Failure(ExitCode::usage, error.what()));
        commandLine.printHelp(error);
    }
    // A full disk behind standard output shows here at the latest.
    if (std::fflush(stdout) != 0)
        throw Failure(ExitCode::failed, "cannot write to standard output");
    return ExitCode::done;
}

}  // namespace

int main(int argc, char** argv) {
    ExitCode result = ExitCode::failed;
    try {
        result = run(argc, argv);
    } catch (const Failure& failure) {
        result = report(failure);
    } catch (const std::exception& error) {
        result = report(Failure(ExitCode::failed, error.what()));
    }
    return static_cast<int>(result);
}
