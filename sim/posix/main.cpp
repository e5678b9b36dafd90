// quillsim: serves simulated adapters to the hosts of this machine, or, with --control, sends one
// command to the simulator that serves a runtime directory.

#include <grp.h>
#include <sys/socket.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "sim/model/text.h"
#include "sim/posix/server.h"

namespace {

using quillsim::AdapterOptions;
using quillsim::ServerOptions;

struct Arguments {
    std::string runtimeDirectory = "/run/wrenlink";
    std::size_t adapters = 1;
    std::vector<std::string> names;
    std::vector<std::uint32_t> ids;
    std::vector<std::string> firmware;
    std::vector<std::string> memory;
    std::vector<std::string> xap;
    std::uint64_t answerMicroseconds = 0;
    std::string mode = "0770";
    std::string group;
    std::string logFile;
    std::string command;
};

void declare(CLI::App& app, Arguments& arguments) {
    app.add_option("--runtime-dir", arguments.runtimeDirectory, "where hosts look for adapters")
        ->envname("WRENLINK_RUNTIME_DIR")
        ->capture_default_str();
    app.add_option("--adapters", arguments.adapters, "how many adapters")
        ->check(CLI::Range(0, 1000))
        ->capture_default_str();
    // Given once for each adapter in turn; where one is given for fewer, the rest as described.
    const auto perAdapter = [&app](const char* name, auto& values, const char* description) {
        return app.add_option(name, values, description)->allow_extra_args(false);
    };
    perAdapter("--name", arguments.names, "socket name (others: quill and the number)");
    perAdapter("--id", arguments.ids, "adapter id (others: 100, 200, ... by number)");
    perAdapter("--firmware", arguments.firmware, "MAJOR.MINOR (others: as the last one, or 1.9)");
    perAdapter("--memory", arguments.memory,
               "file of little-endian words from address 0 on (others: zeros)")
        ->check(CLI::ExistingFile);
    perAdapter("--xap", arguments.xap, "running or stopped (others: as the last one, or running)")
        ->check(CLI::IsMember({"running", "stopped"}));
    app.add_option("--answer-us,--delay-us", arguments.answerMicroseconds,
                   "microseconds that every request takes");
    app.add_option("--mode", arguments.mode, "permissions of the directories that it makes")
        ->capture_default_str();
    app.add_option("--group", arguments.group, "group that may use the adapters");
    app.add_option("--log", arguments.logFile, "file to add a line to for each request");
    app.add_option("--control", arguments.command, "send this command to the running simulator");
}

// The value of an adapter in a list given for some: its own, else the last one, else the default.
std::string valueFor(const std::vector<std::string>& values, std::size_t adapter,
                     std::string_view otherwise) {
    if (values.empty()) return std::string(otherwise);
    return adapter < values.size() ? values[adapter] : values.back();
}

// Padded so that the names sort like the numbers.
std::string defaultName(std::size_t adapter, std::size_t adapters) {
    const std::string number = std::to_string(adapter);
    const std::size_t width = std::to_string(adapters - 1).size();
    return "quill" + std::string(width - number.size(), '0') + number;
}

AdapterOptions adapterOptions(const Arguments& arguments, std::size_t adapter) {
    AdapterOptions options;
    options.name = adapter < arguments.names.size() ? arguments.names[adapter]
                                                    : defaultName(adapter, arguments.adapters);
    options.id = adapter < arguments.ids.size() ? arguments.ids[adapter]
                                                : static_cast<std::uint32_t>(100 * (adapter + 1));
    const std::string firmware = valueFor(arguments.firmware, adapter, "1.9");
    if (!quillsim::readFirmware(firmware, options.firmware)) {
        throw std::runtime_error("--firmware: " + firmware + " is not MAJOR.MINOR");
    }
    if (adapter < arguments.memory.size()) options.memoryFile = arguments.memory[adapter];
    options.xapStopped = valueFor(arguments.xap, adapter, "running") == "stopped";
    options.answerMicroseconds = arguments.answerMicroseconds;
    return options;
}

ServerOptions serverOptions(const Arguments& arguments) {
    ServerOptions options;
    options.runtimeDirectory = arguments.runtimeDirectory;
    options.access.mode = static_cast<mode_t>(std::stoul(arguments.mode, nullptr, 8)) & 0777;
    options.logFile = arguments.logFile;
    if (!arguments.group.empty()) {
        const group* entry = ::getgrnam(arguments.group.c_str());
        if (entry == nullptr) throw std::runtime_error("no group " + arguments.group);
        options.access.group = entry->gr_gid;
    }
    for (std::size_t i = 0; i < arguments.adapters; ++i) {
        options.adapters.push_back(adapterOptions(arguments, i));
    }
    return options;
}

int serve(const Arguments& arguments) {
    quillsim::Server server(serverOptions(arguments));
    std::cout << "ready" << std::endl;
    server.run();
    return 0;
}

// Prints the answer's lines, and the reason of an error on the error stream.
int control(const Arguments& arguments) {
    const auto socket = quillsim::connectControl(arguments.runtimeDirectory);
    const std::string line = arguments.command + "\n";
    const bool sent = ::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL) ==
                          static_cast<ssize_t>(line.size()) &&
                      ::shutdown(socket.get(), SHUT_WR) == 0;
    if (!sent) throw std::system_error(errno, std::generic_category(), "control");

    std::string answer;
    std::array<char, 65536> buffer{};
    for (ssize_t size = 1; size > 0;) {
        size = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
        if (size > 0) answer.append(buffer.data(), static_cast<std::size_t>(size));
    }
    const std::size_t before = answer.size() < 2 ? 0 : answer.rfind('\n', answer.size() - 2) + 1;
    const std::string outcome = answer.substr(before);
    std::cout << answer.substr(0, before);
    if (outcome == "ok\n") return 0;
    std::cerr << "quillsim: " << (outcome.empty() ? "no answer\n" : outcome);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Simulated Quill adapters with Marigold chips behind them"};
    Arguments arguments;
    declare(app, arguments);
    CLI11_PARSE(app, argc, argv);
    try {
        return arguments.command.empty() ? serve(arguments) : control(arguments);
    } catch (const std::exception& error) {
        std::cerr << "quillsim: " << error.what() << '\n';
        return 1;
    }
}
