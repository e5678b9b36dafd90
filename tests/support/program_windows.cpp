#include <windows.h>

#include <memory>
#include <system_error>
#include <utility>

#include "tests/support/command_line_windows.h"
#include "tests/support/program.h"

namespace wrenlink::test {
namespace {

struct HandleCloser {
    void operator()(HANDLE handle) const noexcept { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
}

// A file that the program inherits.
Handle fileFor(const std::filesystem::path& path, DWORD access, DWORD disposition) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE const file = ::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      &inherited, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) fail(path.string());
    return Handle(file);
}

HANDLE processOf(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

}  // namespace

// The program has a console of its own, so that Ctrl-C there reaches nobody else.
Program::Program(std::vector<std::string> words, const std::filesystem::path& output,
                 const std::filesystem::path& errors) {
    const Handle in = fileFor("NUL", GENERIC_READ, OPEN_EXISTING);
    const Handle out = fileFor(output, GENERIC_WRITE, CREATE_ALWAYS);
    const Handle err = fileFor(errors, GENERIC_WRITE, CREATE_ALWAYS);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = in.get();
    startup.hStdOutput = out.get();
    startup.hStdError = err.get();
    PROCESS_INFORMATION started{};
    ::SetConsoleCtrlHandler(nullptr, FALSE);  // or the program ignores Ctrl-C as this process may
    std::string line = commandLine(words);
    if (!::CreateProcessA(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                          nullptr, &startup, &started)) {
        fail(words[0]);
    }
    ::CloseHandle(started.hThread);
    process_ = reinterpret_cast<std::intptr_t>(started.hProcess);
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
    if (!process || ::WaitForSingleObject(process.get(), INFINITE) != WAIT_OBJECT_0 ||
        !::GetExitCodeProcess(process.get(), &code)) {
        return -1;
    }
    return static_cast<int>(code);
}

}  // namespace wrenlink::test
