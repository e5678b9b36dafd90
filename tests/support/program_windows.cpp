#include <windows.h>
// These need the types of windows.h.
#include <fcntl.h>
#include <io.h>

#include <memory>
#include <system_error>
#include <utility>

#include "tests/support/program.h"

namespace wrenlink::test {
namespace {

using Handle = std::unique_ptr<void, decltype([](HANDLE handle) { ::CloseHandle(handle); })>;

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
}

// A backslash escapes only before a quote.
std::string quoted(const std::string& word) {
    std::string text = "\"";
    std::size_t backslashes = 0;
    for (const char character : word) {
        if (character == '"') text.append(backslashes + 1, '\\');
        backslashes = character == '\\' ? backslashes + 1 : 0;
        text.push_back(character);
    }
    return text.append(backslashes, '\\') + '"';
}

// The line that C programs take apart into these words.
std::string commandLine(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) line += (line.empty() ? "" : " ") + quoted(word);
    return line;
}

struct Pipe {
    Handle reads;
    Handle writes;

    Pipe() {
        HANDLE ends[2];
        if (!::CreatePipe(&ends[0], &ends[1], nullptr, 0)) fail("CreatePipe");
        reads.reset(ends[0]);
        writes.reset(ends[1]);
    }
};

// Has a handle lead to a new file instead, if there is one.
void leadTo(Handle& handle, const std::filesystem::path& file) {
    if (file.empty()) return;
    HANDLE const opened =
        ::CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE) fail(file.string());
    handle.reset(opened);
}

HANDLE inherited(HANDLE handle) {
    ::SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    return handle;
}

// Starts a process which inherits what may be inherited. Wine reports an internal error for one
// that ended before it had begun, which happens now and then while others are being killed.
HANDLE startProcess(const std::vector<std::string>& words, DWORD flags, STARTUPINFOA startup) {
    PROCESS_INFORMATION started{};
    std::string line = commandLine(words);
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (::CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, flags, nullptr, nullptr,
                             &startup, &started)) {
            ::CloseHandle(started.hThread);
            return started.hProcess;
        }
        if (::GetLastError() != ERROR_INTERNAL_ERROR) break;
    }
    fail(words[0]);
}

// The stream owns the handle.
std::FILE* streamOf(Handle& handle, const char* mode) {
    const auto value = reinterpret_cast<std::intptr_t>(handle.release());
    return ::_fdopen(::_open_osfhandle(value, _O_TEXT), mode);
}

HANDLE processOf(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

}  // namespace

// One that writes to files has a console of its own, so that Ctrl-C there reaches nobody else.
Program::Program(std::vector<std::string> words, const std::filesystem::path& output,
                 const std::filesystem::path& errors) {
    Pipe up;
    Pipe down;
    Handle complaints;
    leadTo(up.writes, output);
    leadTo(complaints, errors);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = inherited(down.reads.get());
    startup.hStdOutput = inherited(up.writes.get());
    startup.hStdError = complaints ? inherited(complaints.get()) : ::GetStdHandle(STD_ERROR_HANDLE);
    ::SetConsoleCtrlHandler(nullptr, FALSE);  // or the program ignores Ctrl-C as this process may
    process_ = reinterpret_cast<std::intptr_t>(
        startProcess(words, output.empty() ? 0 : CREATE_NO_WINDOW, startup));
    output_ = streamOf(up.reads, "r");
    input_ = streamOf(down.writes, "w");
}

void Program::interrupt() const {
    ::FreeConsole();
    if (!::AttachConsole(::GetProcessId(processOf(process_)))) fail("AttachConsole");
    ::SetConsoleCtrlHandler(nullptr, TRUE);
    if (!::GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) fail("GenerateConsoleCtrlEvent");
}

int Program::wait() {
    const Handle process(processOf(std::exchange(process_, 0)));
    DWORD code = 0;
    if (input_ != nullptr) std::fclose(std::exchange(input_, nullptr));
    if (!process || ::WaitForSingleObject(process.get(), INFINITE) != WAIT_OBJECT_0 ||
        !::GetExitCodeProcess(process.get(), &code)) {
        return -1;
    }
    return static_cast<int>(code);
}

void Program::kill() {
    if (process_ != 0) ::TerminateProcess(processOf(process_), 1);
    wait();
}

}  // namespace wrenlink::test
