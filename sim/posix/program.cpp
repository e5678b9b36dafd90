#include "sim/posix/program.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace quillsim {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// In the child. Signals are what they were before the server took them.
[[noreturn]] void become(std::vector<std::string>& words, const std::string& folder) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    for (const int signal : {SIGPIPE, SIGXFSZ}) ::signal(signal, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    // This machine's map file takes no part.
    for (const char* variable : {"WRENLINK_RUNTIME_DIR", "WRENLINK_DOCUMENTS_DIR"})
        ::setenv(variable, folder.c_str(), 1);
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    ::execvp(pointers[0], pointers.data());
    std::perror(("quillsim: cannot run '" + words[0] + "'").c_str());
    ::_exit(127);
}

}  // namespace

PrivateFolder::PrivateFolder() : path(fs::temp_directory_path() / "quillsim-XXXXXX") {
    if (::mkdtemp(path.data()) == nullptr) fail("a temporary folder");
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

pid_t startProgram(std::vector<std::string> words, const std::string& folder) {
    const pid_t program = ::fork();
    if (program < 0) fail("a process");
    if (program == 0) become(words, folder);
    return program;
}

int exitCodeOf(pid_t program) {
    int status = 0;
    ::waitpid(program, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace quillsim
