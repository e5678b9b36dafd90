// quillsim: serves simulated adapters to the hosts of this machine or to one program, or, with
// --control, sends one command to the simulator that serves a runtime directory.

#include <grp.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/adapter_arguments.h"
#include "sim/posix/control_client.h"
#include "sim/posix/program.h"
#include "sim/posix/server.h"
#include "sim/text_sink.h"

namespace {

using quillsim::ServerOptions;

constexpr std::size_t kMostAdapters = 1000;

struct Arguments : quillsim::AdapterArguments {
    std::string runtimeDirectory = "/run/wrenlink";
    std::string mode = "0770";
    std::string group;
    std::string captureFile;
    std::string command;
    std::vector<std::string> program;  // with its arguments
};

void declare(CLI::App& app, Arguments& arguments) {
    app.add_option("--runtime-dir", arguments.runtimeDirectory, "where hosts look for adapters")
        ->envname("WRENLINK_RUNTIME_DIR")
        ->check(CLI::Validator(
            [](std::string& path) {
                return path.front() == '/' ? "" : "'" + path + "' is not an absolute path";
            },
            ""))
        ->capture_default_str();
    quillsim::declareAdapters(app, arguments, kMostAdapters);
    app.add_option("--mode", arguments.mode, "permissions of the directories that it makes")
        ->check(CLI::Validator(
            [](std::string& mode) {
                const bool good = !mode.empty() && mode.size() <= 4 &&
                                  mode.find_first_not_of("01234567") == std::string::npos;
                return good ? "" : "'" + mode + "' is no number in octal digits";
            },
            ""))
        ->capture_default_str();
    app.add_option("--group", arguments.group, "group that may use the adapters");
    app.add_option("--capture", arguments.captureFile,
                   "pcapng file of what travels between hosts and adapters");
    app.add_option("--control", arguments.command, "send this command to the running simulator");
    app.prefix_command();
    app.callback([&app, &arguments] {
        arguments.program = app.remaining();
        if (arguments.program.empty()) return;
        if (!arguments.command.empty() || arguments.program.front().starts_with('-'))
            throw CLI::ExtrasError({arguments.program.front()});
    });
}

quillsim::Adapters makeAdapters(const Arguments& arguments) {
    quillsim::Adapters adapters;
    std::vector<quillsim::Adapter*> bench;
    for (std::uint32_t i = 1; i <= arguments.adapters; ++i) {
        adapters.push_back(std::make_unique<quillsim::Adapter>(100 * i, EINVAL));
        bench.push_back(adapters.back().get());
    }
    quillsim::configure(arguments, [&bench](const std::string& line) {
        std::string answer;
        quillsim::TextWriter writer = quillsim::writerTo(answer);
        if (!quillsim::runCommand({bench}, line, writer)) throw std::runtime_error(answer);
    });
    return adapters;
}

ServerOptions serverOptions(const Arguments& arguments) {
    ServerOptions options;
    options.runtimeDirectory = arguments.runtimeDirectory;
    options.access.mode = static_cast<mode_t>(std::stoul(arguments.mode, nullptr, 8)) & 0777;
    options.captureFile = arguments.captureFile;
    if (!arguments.group.empty()) {
        const group* entry = ::getgrnam(arguments.group.c_str());
        if (entry == nullptr) throw std::runtime_error("no group " + arguments.group);
        options.access.group = entry->gr_gid;
    }
    options.adapters = makeAdapters(arguments);
    return options;
}

int serve(const Arguments& arguments) {
    quillsim::Server server(serverOptions(arguments));
    std::cout << "ready" << std::endl;
    return server.run() ? 0 : 1;
}

int serveProgram(Arguments arguments) {
    const quillsim::PrivateFolder folder;
    arguments.runtimeDirectory = folder.path;
    quillsim::Server server(serverOptions(arguments));
    const pid_t program = quillsim::startProgram(arguments.program, folder.path);
    const bool isCaptured = server.run(program);
    const int code = quillsim::exitCodeOf(program);
    return code == 0 && !isCaptured ? 1 : code;
}

int control(const Arguments& arguments) {
    std::cout << quillsim::ControlClient(arguments.runtimeDirectory).run(arguments.command);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "Offers simulated Quill adapters with Marigold chips behind them to the hosts of this "
        "machine, or to PROGRAM alone, and ends with it and its exit code.",
        "quillsim"};
    app.get_formatter()->label("OPTIONS", "OPTIONS] [PROGRAM [ARGUMENT...]");
    Arguments arguments;
    quillsim::declareManners(app);
    declare(app, arguments);
    try {
        app.parse(argc, argv);
        if (!arguments.program.empty()) return serveProgram(arguments);
        return arguments.command.empty() ? serve(arguments) : control(arguments);
    } catch (const CLI::ParseError& error) {
        return quillsim::answerUnrun(app, error, std::cout, std::cerr);
    } catch (const std::exception& error) {
        std::cerr << "quillsim: " << error.what() << '\n';
        return 1;
    }
}
