// The simulator's driver offers the adapters to the whole machine; its tool steers it.
#include <windows.h>

#include <memory>
#include <string>

#include "failure.h"
#include "simulation.h"

namespace wren {

namespace {

constexpr const char* kRemedy =
    "put quillsim.exe beside wren.exe or on PATH, and run 'quillsim install' as an administrator";

[[noreturn]] void fail(const std::string& text, const std::string& hint = kRemedy) {
    throw Failure(ExitCode::failed, "no simulated adapters: " + text, hint);
}

struct CloseHandle {
    void operator()(HANDLE handle) const noexcept { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, CloseHandle>;

struct Outcome {
    DWORD exitCode = 1;
    std::string printed;
};

std::string readToEnd(HANDLE pipe) {
    std::string text;
    char buffer[4096];
    for (DWORD size = 0; ::ReadFile(pipe, buffer, sizeof buffer, &size, nullptr) && size > 0;)
        text.append(buffer, size);
    return text;
}

// Runs quillsim, found beside the tool or on PATH.
Outcome runTool(const std::string& arguments) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE ends[2]{};
    if (!::CreatePipe(&ends[0], &ends[1], &inherited, 0)) fail("a pipe cannot be made");
    const Handle out(ends[0]);
    Handle in(ends[1]);
    ::SetHandleInformation(out.get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = in.get();
    startup.hStdError = in.get();
    PROCESS_INFORMATION started{};
    std::string line = "quillsim.exe " + arguments;
    if (!::CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                          nullptr, &startup, &started)) {
        fail("'quillsim.exe' cannot be started");
    }
    in.reset();
    const Handle process(started.hProcess);
    const Handle thread(started.hThread);
    Outcome outcome;
    outcome.printed = readToEnd(out.get());
    ::WaitForSingleObject(process.get(), INFINITE);
    ::GetExitCodeProcess(process.get(), &outcome.exitCode);
    return outcome;
}

void setAdapters(unsigned count) {
    const std::string number = std::to_string(count);
    if (runTool("control \"adapters " + number + "\"").exitCode != 0)
        fail("the simulator's driver is not installed");
    if (runTool("wait " + number).exitCode != 0) fail("the adapters do not appear");
}

}  // namespace

struct Simulation::Native {};

Simulation::Simulation(unsigned adapters, const std::string& captureFile) : native_(nullptr) {
    if (!captureFile.empty()) fail("captures are made on Linux alone", "leave --capture out");
    // Others' adapters would be among ours, and port 0 might be a real one.
    if (!runTool("list").printed.empty())
        fail("this machine has adapters already", "use those, without --simulate");
    setAdapters(adapters);
}

void Simulation::finish() {}

Simulation::~Simulation() {
    try {
        setAdapters(0);
    } catch (const Failure&) {
        // Whoever starts a simulation next is told that adapters are there.
    }
}

}  // namespace wren
