#include <windows.h>
// These need the types of windows.h.
#include <fcntl.h>
#include <io.h>

#include <array>
#include <system_error>

#include "tests/support/child_process.h"
#include "tests/support/command_line_windows.h"

namespace wrenlink::test {
namespace {

void check(bool done, const char* what) {
    if (done) return;
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
}

std::string ownProgram() {
    std::array<char, 32768> path;
    const DWORD length = ::GetModuleFileNameA(nullptr, path.data(), path.size());
    check(length > 0, "GetModuleFileName");
    return {path.data(), length};
}

enum class ChildEnd { reads, writes };

// A pipe of which a child inherits one end, and nobody the other.
struct Pipe {
    HANDLE ofChild = nullptr;
    HANDLE ofParent = nullptr;

    explicit Pipe(ChildEnd childEnd) {
        const bool childReads = childEnd == ChildEnd::reads;
        check(::CreatePipe(childReads ? &ofChild : &ofParent, childReads ? &ofParent : &ofChild,
                           nullptr, 0),
              "CreatePipe");
        ::SetHandleInformation(ofChild, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() { ::CloseHandle(ofChild); }
};

// The stream owns the handle.
std::FILE* streamOf(HANDLE handle, const char* mode) {
    return ::_fdopen(::_open_osfhandle(reinterpret_cast<intptr_t>(handle), _O_TEXT), mode);
}

// Starts a process which inherits what may be inherited. Wine reports an internal error for one
// that ended before it had begun, which happens now and then while others are being killed.
PROCESS_INFORMATION startProcess(const std::string& program, std::string line,
                                 STARTUPINFOA startup) {
    PROCESS_INFORMATION started{};
    BOOL done = FALSE;
    for (int attempt = 0; !done && attempt < 3; ++attempt) {
        done = ::CreateProcessA(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                nullptr, &startup, &started);
        if (!done && ::GetLastError() != ERROR_INTERNAL_ERROR) break;
    }
    check(done, "CreateProcess");
    return started;
}

}  // namespace

struct ChildProcess::Native {
    HANDLE process = nullptr;
};

ChildProcess::ChildProcess(const std::string& role, const Arguments& arguments)
    : native_(new Native) {
    const std::string program = ownProgram();
    std::vector<std::string> words = {program, "--child", role};
    words.insert(words.end(), arguments.begin(), arguments.end());

    const Pipe up(ChildEnd::writes);
    const Pipe down(ChildEnd::reads);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = down.ofChild;
    startup.hStdOutput = up.ofChild;
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    const PROCESS_INFORMATION started = startProcess(program, commandLine(words), startup);
    ::CloseHandle(started.hThread);
    native_->process = started.hProcess;
    fromChild_ = streamOf(up.ofParent, "r");
    toChild_ = streamOf(down.ofParent, "w");
}

void ChildProcess::kill() {
    if (native_ == nullptr) return;
    ::TerminateProcess(native_->process, 1);
    ::WaitForSingleObject(native_->process, INFINITE);
    ::CloseHandle(native_->process);
    std::fclose(fromChild_);
    std::fclose(toChild_);
    delete native_;
    native_ = nullptr;
}

}  // namespace wrenlink::test
