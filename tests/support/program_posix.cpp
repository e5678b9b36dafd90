#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "tests/support/program.h"

namespace wrenlink::test {
namespace {

struct Pipe {
    int ends[2];  // to read from, to write to

    Pipe() {
        if (::pipe2(ends, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe2");
    }
};

// In the child.
void writeTo(int stream, const std::filesystem::path& file) {
    if (!file.empty()) ::dup2(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), stream);
}

}  // namespace

Program::Program(std::vector<std::string> words, const std::filesystem::path& output,
                 const std::filesystem::path& errors) {
#ifdef EMULATOR
    words.insert(words.begin(), EMULATOR);
#endif
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const Pipe up;
    const Pipe down;
    const pid_t id = ::fork();
    if (id < 0) throw std::system_error(errno, std::generic_category(), words[0]);
    if (id == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);  // not to outlive a test that crashes
        ::dup2(down.ends[0], STDIN_FILENO);
        ::dup2(up.ends[1], STDOUT_FILENO);
        writeTo(STDOUT_FILENO, output);
        writeTo(STDERR_FILENO, errors);
        ::execvp(pointers[0], pointers.data());
        ::_exit(127);
    }
    ::close(down.ends[0]);
    ::close(up.ends[1]);
    process_ = id;
    output_ = ::fdopen(up.ends[0], "r");
    input_ = ::fdopen(down.ends[1], "w");
}

void Program::interrupt() const { ::kill(static_cast<pid_t>(process_), SIGINT); }

int Program::wait() {
    const auto id = static_cast<pid_t>(std::exchange(process_, 0));
    int status = 0;
    if (input_ != nullptr) std::fclose(std::exchange(input_, nullptr));
    if (id == 0 || ::waitpid(id, &status, 0) != id) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Program::kill() {
    if (process_ != 0) ::kill(static_cast<pid_t>(process_), SIGKILL);
    wait();
}

}  // namespace wrenlink::test
