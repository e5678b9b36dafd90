#include "tests/support/quillsim_posix.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace wrenlink::test {

Quillsim::Quillsim(const std::filesystem::path& runtime, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {QUILLSIM, "--runtime-dir", runtime});
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || (id_ = ::fork()) < 0)
        throw std::system_error(errno, std::generic_category(), "the simulator");
    if (id_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);  // not to outlive a test that crashes
        ::dup2(out[1], STDOUT_FILENO);
        ::execv(QUILLSIM, pointers.data());
        ::_exit(127);
    }
    ::close(out[1]);
    output_ = ::fdopen(out[0], "r");
}

Quillsim::~Quillsim() {
    kill(SIGTERM);
    std::fclose(output_);
}

std::string Quillsim::readLine() {
    char line[1024] = "";
    return std::fgets(line, sizeof line, output_) == nullptr ? "" : line;
}

int Quillsim::wait() {
    int status = 0;
    const pid_t id = std::exchange(id_, 0);
    if (id == 0 || ::waitpid(id, &status, 0) != id) return 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int Quillsim::kill(int signal) {
    if (id_ != 0) ::kill(id_, signal);
    return wait();
}

}  // namespace wrenlink::test
