// quillsim: installs the driver that offers simulated adapters to the hosts of this machine, steers
// it, and removes it.
#include <windows.h>
// Behind windows.h, which it needs.
#include <fcntl.h>
#include <io.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "sim/adapter_arguments.h"
#include "sim/windows/adapter_list.h"
#include "sim/windows/control_client.h"
#include "sim/windows/control_protocol.h"
#include "sim/windows/installation.h"
#include "sim/windows/unicode.h"

namespace {

namespace fs = std::filesystem;
using quillsim::ControlClient;

constexpr std::chrono::seconds kPatience(20);

struct Arguments : quillsim::AdapterArguments {
    std::string command;
    std::size_t awaited = 0;
};

// Tries something until it succeeds.
template <typename Attempt>
void await(Attempt attempt, const std::string& what) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!attempt()) {
        if (std::chrono::steady_clock::now() > end) throw std::runtime_error("no " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void awaitAdapters(std::size_t count) {
    await([count] { return quillsim::listAdapters().size() == count; },
          "list of " + std::to_string(count) + " adapters");
}

fs::path ownFolder() {
    wchar_t path[MAX_PATH] = L"";
    ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).parent_path();
}

void uninstall() {
    quillsim::removeDriver();
    await([] { return !ControlClient().isOpen(); }, "end of the driver");
}

void install(const Arguments& arguments) {
    // A driver that is there already may be an older one.
    uninstall();
    quillsim::installDriver(ownFolder() / "quillsim.inf");
    await([] { return ControlClient().isOpen(); }, "driver");
    ControlClient client;
    client.run("adapters " + std::to_string(arguments.adapters));
    configure(arguments, [&client](const std::string& line) { client.run(line); });
    awaitAdapters(arguments.adapters);
}

void control(const std::string& command) {
    ControlClient client;
    if (!client.isOpen()) throw std::runtime_error("the driver is not installed");
    quillsim::print(stdout, client.run(command));
}

}  // namespace

int main() {
    for (std::FILE* const stream : {stdout, stderr}) ::_setmode(::_fileno(stream), _O_BINARY);
    CLI::App app{"Simulated Quill adapters with Marigold chips behind them", "quillsim"};
    Arguments arguments;
    quillsim::declareManners(app);
    app.require_subcommand(1);
    CLI::App* const installing =
        app.add_subcommand("install", "install the driver anew, with adapters at power-on");
    quillsim::declareAdapters(*installing, arguments, quillsim::kMostAdapters);
    installing->callback([&] { install(arguments); });
    app.add_subcommand("remove", "remove the driver")->callback(uninstall);
    CLI::App* const controlling = app.add_subcommand("control", "send the driver a command");
    controlling->add_option("COMMAND", arguments.command, "the line; \"help\" lists them")
        ->required();
    controlling->callback([&] { control(arguments.command); });
    CLI::App* const waiting = app.add_subcommand("wait", "wait until so many adapters are listed");
    waiting->add_option("COUNT", arguments.awaited)->required();
    waiting->callback([&] { awaitAdapters(arguments.awaited); });
    app.add_subcommand("list", "list the device paths of the adapters")->callback([] {
        for (const std::string& path : quillsim::listAdapters())
            quillsim::print(stdout, path + '\n');
    });
    try {
        std::vector<std::string> words = quillsim::argumentsInUtf8();
        std::ranges::reverse(words);  // as the parser takes them
        app.parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        std::ostringstream out;
        std::ostringstream complaints;
        const int code = quillsim::answerUnrun(app, error, out, complaints);
        quillsim::print(stdout, out.str());
        quillsim::print(stderr, complaints.str());
        return code;
    } catch (const std::exception& error) {
        quillsim::print(stderr, "quillsim: " + quillsim::systemTextInUtf8(error.what()) + '\n');
        return 1;
    }
    return 0;
}
