#include <windows.h>
// Behind windows.h, which it needs.
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <system_error>

#include "system.h"

namespace wren::system {

namespace {

struct FreeLocal {
    void operator()(void* memory) const noexcept { ::LocalFree(memory); }
};

struct CloseHandle {
    void operator()(HANDLE handle) const noexcept { ::CloseHandle(handle); }
};

std::string utf8(const wchar_t* text) {
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return "";
    std::string converted(static_cast<std::size_t>(size) - 1, '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text, -1, converted.data(), size, nullptr, nullptr);
    return converted;
}

// Ctrl-C reaches the tool that was run anew, too, and that one decides.
BOOL WINAPI ignoreCtrlC(DWORD) { return TRUE; }

}  // namespace

std::vector<std::string> arguments(int argc, char** argv) {
    int count = 0;
    const std::unique_ptr<wchar_t*, FreeLocal> words(
        ::CommandLineToArgvW(::GetCommandLineW(), &count));
    if (!words) return {argv + 1, argv + argc};
    std::vector<std::string> converted;
    for (int i = 1; i < count; ++i) converted.push_back(utf8(words.get()[i]));
    return converted;
}

void guardStandardStreams() noexcept {}

SignalHandler setSignalHandler(int signal, SignalHandler handler) noexcept {
    return std::signal(signal, handler);
}

std::FILE* openFile(const std::filesystem::path& path, const char* mode) noexcept {
    const std::wstring wideMode(mode, mode + std::strlen(mode));
    return ::_wfopen(path.c_str(), wideMode.c_str());
}

void passBytes(std::FILE* stream) noexcept { ::_setmode(::_fileno(stream), _O_BINARY); }

int runAgainWith(const char* variable, const char* value, char**) {
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
    return (folder != nullptr ? utf8(folder) : "") + "\\wrenlink\\wren.toml";
}

// The system's own words are in the code page of its language, names of files within them need not
// be.
std::string inUtf8(const std::string& text) {
    const auto wideSize = [&](UINT codePage, DWORD flags) {
        return ::MultiByteToWideChar(codePage, flags, text.c_str(), -1, nullptr, 0);
    };
    if (wideSize(CP_UTF8, MB_ERR_INVALID_CHARS) > 0) return text;
    std::wstring wide(static_cast<std::size_t>(wideSize(CP_ACP, 0)), L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, wide.data(), static_cast<int>(wide.size()));
    return utf8(wide.c_str());
}

std::string whyNoAdapters() {
    return "Windows lists none: plug one in, or see in Device Manager whether its driver works";
}

}  // namespace wren::system
