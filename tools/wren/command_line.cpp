#include "command_line.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <wrenlink/spifns.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <sstream>

#include "arguments.h"
#include "debug_text.h"
#include "failure.h"
#include "files.h"
#include "lines.h"
#include "number.h"

namespace wren {

namespace {

// The most adapters that the library lists.
constexpr std::uint64_t kMostAdapters = 32;

std::string versionText() { return "wren on wrenlink " + wren::versionText(spifns_get_version()); }

std::string footerText() {
    std::string text = "'wren help COMMAND' tells about one.\n\nExit codes:";
    for (const ExitMeaning& exit : kExitMeanings)
        text += fmt::format("\n  {:<5}{}", static_cast<int>(exit.code), exit.meaning);
    return text;
}

class CommandLine {
   public:
    explicit CommandLine(Context& context);
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    // False when there is no command to run.
    bool parse(std::vector<std::string> arguments);

    const RunOptions& options() const noexcept { return options_; }
    Work prepare() const { return command_(); }

   private:
    CLI::App* add(const char* name, const char* purpose, std::function<Work()> command);
    void addSource(CLI::App* command, ImageSource& source);
    static void addManner(CLI::App* command, WriteManner& manner);
    void addRunOptions();
    void addConnectionOptions();
    void addInspection();
    void addReading();
    void addWriting();
    void addVariables();
    void addChipCommands();
    std::vector<std::string_view> commandNames() const;
    void joinNumbers(std::vector<std::string>& arguments) const;
    void requireKnownCommand() const;
    void readConfiguration();
    void configure(const std::string& file, const CLI::ConfigItem& item);

    Context& context_;
    CLI::App app_{"Reads, writes and inspects a Marigold chip through a Quill adapter.", "wren"};
    RunOptions options_;
    PortsRequest ports_;
    ReadRequest read_;
    WriteRequest write_;
    CompareRequest compare_;
    FillRequest fill_;
    DumpRequest dump_;
    MgcmdRequest mgcmd_;
    SpeedRequest speed_;
    std::string name_;
    std::vector<std::string> names_;
    std::function<Work()> command_;
};

}  // namespace

CommandLine::CommandLine(Context& context) : context_(context) {
    app_.require_subcommand(0, 1);
    app_.allow_windows_style_options(false);
    app_.set_version_flag("--version", versionText());
    app_.fallthrough();
    app_.footer(footerText());
    addRunOptions();
    addConnectionOptions();
    addInspection();
    addReading();
    addWriting();
    addVariables();
    addChipCommands();
}

bool CommandLine::parse(std::vector<std::string> arguments) {
    if (!arguments.empty() && arguments.front() == "help") {
        arguments.erase(arguments.begin());
        arguments.emplace_back("--help");
    }
    joinNumbers(arguments);
    std::reverse(arguments.begin(), arguments.end());
    try {
        app_.parse(std::move(arguments));
    } catch (const CLI::ParseError& error) {
        requireKnownCommand();
        if (error.get_exit_code() == 0) {
            app_.exit(error);
            context_.output.setCommand("");
            return false;
        }
        throw Failure(ExitCode::usage, flattened(error.what()), "--help tells what there is");
    }
    readConfiguration();
    if (!command_) throw Failure(ExitCode::usage, "no command", "'wren --help' lists them");
    return true;
}

// The files say what neither the command line nor the environment says; the first one wins.
void CommandLine::readConfiguration() {
    for (const std::string& file : {std::string("wren.toml"), system::userConfiguration()}) {
        std::error_code ignored;
        if (!std::filesystem::exists(pathOf(file), ignored)) continue;
        std::istringstream text(textOf(readFile(file)));
        for (const CLI::ConfigItem& item : CLI::ConfigTOML().from_config(text))
            configure(file, item);
    }
}

void CommandLine::configure(const std::string& file, const CLI::ConfigItem& item) {
    const std::string& name = item.parents.empty() ? item.name : item.parents.front();
    const auto failure = failureOf([&] {
        if (name != "port" && name != "clock")
            throw Failure(ExitCode::usage,
                          fmt::format("no setting '{}'; there are port, clock", name));
        CLI::Option* const option = app_.get_option("--" + name);
        if (option->count() > 0) return;
        option->add_result(fmt::format("{}", fmt::join(item.inputs, ",")));
        option->run_callback();
    });
    if (failure)
        throw Failure(ExitCode::usage, fmt::format("cannot use '{}': {}", file, failure->what()));
}

std::vector<std::string_view> CommandLine::commandNames() const {
    std::vector<std::string_view> names;
    for (const CLI::App* command : app_.get_subcommands(nullptr))
        names.push_back(command->get_name());
    return names;
}

// The number of a flag stands behind a '=', and is understood behind a blank where it can be
// nothing else.
void CommandLine::joinNumbers(std::vector<std::string>& arguments) const {
    bool inCommand = false;
    for (auto at = arguments.begin(); at != arguments.end() && at + 1 != arguments.end(); ++at) {
        inCommand = inCommand || std::ranges::count(commandNames(), *at) > 0;
        if ((*at != "--simulate" && *at != "--watch") || !decimalNumber(at[1])) continue;
        if (inCommand && wholeNumber(at[1]))
            throw Failure(ExitCode::usage, fmt::format("'{} {}' may mean two things", *at, at[1]),
                          fmt::format("write {}={}, or other numbers before it", *at, at[1]));
        *at += '=' + at[1];
        arguments.erase(at + 1);
    }
}

void CommandLine::requireKnownCommand() const {
    const std::vector<std::string> rest = app_.remaining();
    if (!app_.get_subcommands().empty() || rest.empty() || rest.front().starts_with('-')) return;
    throw Failure(ExitCode::usage, fmt::format("no command '{}'", rest.front()),
                  choicesFor(rest.front(), commandNames()));
}

CLI::App* CommandLine::add(const char* name, const char* purpose, std::function<Work()> command) {
    CLI::App* subcommand = app_.add_subcommand(name, purpose);
    subcommand->footer("The options of 'wren --help' may stand here, too.");
    // Known before its arguments turn out to be wrong.
    subcommand->preparse_callback([this, name](std::size_t) { context_.output.setCommand(name); });
    subcommand->callback([this, command = std::move(command)] { command_ = command; });
    return subcommand;
}

void CommandLine::addRunOptions() {
    app_.add_flag("--json", options_.json, "Print results as one JSON object");
    app_.add_flag("-v,--verbose", options_.verbosity,
                  "Tell each step; -vv tells the library's own text, too");
    addProgress(&app_, context_.progress);
    app_.add_option("--log", options_.logFile,
                    "Add each step and the library's text to this file, with the time")
        ->type_name("FILE");
    app_.add_option("--record", options_.recordFile,
                    "Add a line of JSON to this file for each adapter that the command worked with")
        ->type_name("FILE");
    CLI::Option* simulate =
        app_.add_flag("--simulate", options_.simulatedAdapters,
                      "Work with N simulated adapters (1), which last as long as the command")
            ->transform(wholeNumberIn(1, kMostAdapters))
            ->transform(flagAsOne())  // what is added last comes first
            ->type_name("[=N]");
    app_.add_option("--capture", options_.captureFile,
                    "Capture what travels to the simulated adapters, for Wireshark")
        ->needs(simulate)
        ->type_name("FILE");
}

// The options that stand for settings, which are made in this order.
constexpr struct {
    const char* option;
    const char* variable;
    const char* metavar;
    const char* purpose;
} kSettingOptions[] = {
    {"--mode", "QUILLMODE", "MODE", "Interface mode: SPI or JTAG"},
    {"--max-clock", "SPIMAXCLOCK", "KHZ", "Refuse to work at an SPI clock above this one (1070)"},
    {"--clock", "SPICLOCK", "KHZ", "SPI clock; the adapter takes the nearest it has"},
    {"--mux", "SPIMUL", "N", "Multiplexed device, 0 to 16"},
    {"--read-bits", "SPICMDREADBITS", "BITS", "Command bits of reads"},
    {"--write-bits", "SPICMDWRITEBITS", "BITS", "Command bits of writes"},
};

void CommandLine::addConnectionOptions() {
    app_.add_option("--port", context_.connection.port,
                    "Adapter: its key or id as 'wren ports' lists them; several with commas "
                    "between them, or all")
        ->envname("WREN_PORT")
        ->type_name("KEY_OR_ID");
    app_.add_flag_callback(
        "--no-lock", [this] { context_.connection.turn.wanted = false; },
        "Work beside other hosts, which may come between");
    app_.add_option("--wait")
        ->description("Wait so long at most for another host at the adapter")
        ->check(secondsValidator(true))
        ->each([this](const std::string& text) {
            context_.connection.turn.mostSeconds = decimalNumber(text);
        })
        ->type_name("SECONDS");
    for (const auto& [option, variable, metavar, purpose] : kSettingOptions) {
        const auto take = [this, name = variable](const std::string& value) {
            context_.connection.settings.push_back(makeSetting(name, value));
        };
        app_.add_option_function<std::string>(option, take, purpose)->type_name(metavar);
    }
}

void CommandLine::addInspection() {
    CLI::App* ports =
        add("ports", "List the adapters", [this] { return listPorts(ports_, context_); });
    ports->add_option("--await", ports_.awaited, "Wait until so many answer")
        ->transform(wholeNumberIn(1, kMostAdapters))
        ->type_name("N");
    addWatch(ports, "Look again every SECONDS (1) and tell which come and go, until Ctrl-C",
             ports_.watchSeconds);
    add("info", "Show the adapter, its settings and the chip's state", [] { return showInfo(); });
    add("xap", "Tell whether the chip's XAP processor runs", [] { return showXapState(); });
    CLI::App* speed = add("speed", "Measure how fast the chip can be read",
                          [this] { return measureSpeed(speed_); });
    speed->add_option("--seconds", speed_.seconds, "How long to measure (1)")
        ->check(secondsValidator())
        ->type_name("SECONDS");
}

void CommandLine::addReading() {
    CLI::App* read = add("read", "Read words, to a file or as text",
                         [this] { return readMemory(read_, context_); });
    addAddress(read, read_.address)->required();
    addCount(read, read_.count)->required();
    read->add_option(
            "-o,--output", read_.file,
            "File to write, with the adapter's id for {id} in its name; - is standard output")
        ->type_name("FILE");
    addFormat(read, read_.format);

    CLI::App* dump = add("dump", "Show words in hexadecimal and as text",
                         [this] { return dumpMemory(dump_, context_); });
    addAddress(dump, dump_.address);
    addCount(dump, dump_.count);
    addWatch(dump, "Look again every SECONDS (1) and mark what changed, until Ctrl-C",
             dump_.watchSeconds);
    dump->add_option("--looks", dump_.mostLooks, "Stop watching after so many looks")
        ->transform(wholeNumberIn(1, UINT32_MAX))
        ->needs("--watch")
        ->type_name("N");
}

void CommandLine::addSource(CLI::App* command, ImageSource& source) {
    addAddress(command, source.address);
    CLI::Option* words = addWords(command, "WORDS", source.words, "The words");
    command->add_option("-i,--input", source.file, "File of words; - is standard input")
        ->type_name("FILE")
        ->excludes(words);
    addFormat(command, source.format);
}

void CommandLine::addManner(CLI::App* command, WriteManner& manner) {
    command->add_flag_callback(
        "--no-verify", [&manner] { manner.verify = false; }, "Do not read back and compare");
    command->add_flag("--changed", manner.changedOnly,
                      "Read first, and write only the words that differ");
    command->add_flag("--dry-run", manner.dryRun,
                      "Write nothing; tell what would be written where");
}

void CommandLine::addWriting() {
    CLI::App* write =
        add("write", "Write words and verify them", [this] { return writeMemory(write_); });
    addSource(write, write_.source);
    CLI::App* fill = add("fill", "Fill a region with a pattern of words and verify them",
                         [this] { return fillMemory(fill_); });
    addAddress(fill, fill_.address)->required();
    addCount(fill, fill_.count)->required();
    addWords(fill, "WORDS", fill_.pattern, "The pattern")->required();
    addManner(write, write_.manner);
    addManner(fill, fill_.manner);

    CLI::App* verify = add("verify", "Show where the chip differs from words or a file",
                           [this] { return compareMemory(compare_); });
    addSource(verify, compare_.source);
    verify->add_option("--most", compare_.mostListed, "How many differences to show (8)")
        ->transform(wholeNumberIn(0, kMemoryWords))
        ->type_name("N");
}

void CommandLine::addVariables() {
    CLI::App* get = add("get", "Read variables, all of them without names",
                        [this] { return getVariables(names_); });
    get->add_option("NAME", names_, "The variables")->type_name("");
    CLI::App* set =
        add("set", "Set variables, in the order given", [this] { return setVariables(names_); });
    set->add_option("SETTING", names_, "NAME=VALUE")->required()->type_name("");
}

void CommandLine::addChipCommands() {
    CLI::App* command = add("command", "Send a named command: DFU or SPISLOWER",
                            [this] { return sendCommand(name_); });
    command->add_option("NAME", name_, "The command")->required()->type_name("");

    CLI::App* mgcmd = add("mgcmd", "Send an MGCMD command and show the answer",
                          [this] { return sendMgcmd(mgcmd_); });
    addWords(mgcmd, "WORDS", mgcmd_.words, "The command's words")->required();
    addWords(mgcmd, "--init", mgcmd_.preparation, "Prepare the adapter with these two first")
        ->expected(2)
        ->allow_extra_args(false)
        ->type_name("FIRST SECOND");
    mgcmd->add_flag_callback(
        "--any-answer", [this] { mgcmd_.strict = false; },
        "Show the answer even when the adapter reports a failure");

    CLI::App* run = add("run", "Carry out a file of actions as one sequence",
                        [this] { return runScript(name_); });
    run->add_option("SCRIPT", name_, "Lines of: read ADDR COUNT, write ADDR WORDS, set NAME=VALUE")
        ->required()
        ->type_name("");
}

ParsedCommand parseCommandLine(Context& context, std::vector<std::string> arguments) {
    const auto commandLine = std::make_shared<CommandLine>(context);
    const bool hasCommand = commandLine->parse(std::move(arguments));
    ParsedCommand parsed{commandLine->options(), {}};
    if (hasCommand) parsed.prepare = [commandLine] { return commandLine->prepare(); };
    return parsed;
}

}  // namespace wren
