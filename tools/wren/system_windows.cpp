#include <windows.h>
// Behind windows.h, which it needs.
#include <fcntl.h>
#include <io.h>

#include <array>
#include <csignal>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>

#include "sim/windows/unicode.h"
#include "system.h"

namespace wren::system {

namespace {

struct CloseHandle {
    void operator()(HANDLE handle) const noexcept { ::CloseHandle(handle); }
};

// Ctrl-C reaches the tool that was run anew, too, and that one decides.
BOOL WINAPI ignoreCtrlC(DWORD) { return TRUE; }

}  // namespace

std::vector<std::string> arguments(int, char**) { return quillsim::argumentsInUtf8(); }

void prepareStandardStreams() noexcept {
    for (std::FILE* const stream : {stdin, stdout, stderr})
        ::_setmode(::_fileno(stream), _O_BINARY);
}

SignalHandler setSignalHandler(int signal, SignalHandler handler) noexcept {
    return std::signal(signal, handler);
}

std::FILE* openFile(const std::filesystem::path& path, const char* mode) noexcept {
    const std::wstring wideMode(mode, mode + std::strlen(mode));
    return ::_wfopen(path.c_str(), wideMode.c_str());
}

bool isDevice(const std::filesystem::path& path) {
    std::array<wchar_t, MAX_PATH> full{};
    ::GetFullPathNameW(path.c_str(), full.size(), full.data(), nullptr);
    return std::wstring_view(full.data()).starts_with(LR"(\\.\)");
}

int runAgainWith(const char* variable, const char* value, char**, std::vector<std::string>) {
    char present[64] = "";
    ::GetEnvironmentVariableA(variable, present, sizeof present);
    if (std::strcmp(present, value) == 0) return -1;
    ::SetEnvironmentVariableA(variable, value);
    ::SetConsoleCtrlHandler(ignoreCtrlC, TRUE);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    std::wstring line = ::GetCommandLineW();
    wchar_t program[MAX_PATH] = L"";
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    if (!::CreateProcessW(program, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                          &startup, &started)) {
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(),
                                "starting anew");
    }
    const std::unique_ptr<void, CloseHandle> process(started.hProcess);
    const std::unique_ptr<void, CloseHandle> thread(started.hThread);
    DWORD code = 1;
    ::WaitForSingleObject(process.get(), INFINITE);
    ::GetExitCodeProcess(process.get(), &code);
    return static_cast<int>(code);
}

std::string userConfiguration() {
    const wchar_t* const folder = ::_wgetenv(L"APPDATA");
    return (folder != nullptr ? quillsim::toUtf8(folder) : "") + "\\wrenlink\\wren.toml";
}

std::string inUtf8(const std::string& text) { return quillsim::systemTextInUtf8(text); }

std::string wayToExchanges(const std::string& port, bool own) {
    HANDLE const simulator = ::CreateFileA(R"(\\.\quillsim)", 0, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                           nullptr, OPEN_EXISTING, 0, nullptr);
    if (simulator == INVALID_HANDLE_VALUE) return "";
    ::CloseHandle(simulator);
    if (own) return "";
    return "'quillsim control \"log " + port + "\"' shows the exchanges";
}

std::string whyNoAdapters() {
    return "Windows lists none: plug one in, or see in Device Manager whether its driver works";
}

}  // namespace wren::system
