#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <system_error>
#include <utility>

#include "tests/support/program.h"

namespace wrenlink::test {

Program::Program(std::vector<std::string> words, const std::filesystem::path& output,
                 const std::filesystem::path& errors) {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(), flags, 0600);
    ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, errors.c_str(), flags, 0600);
    pid_t id = 0;
    const int error = ::posix_spawnp(&id, pointers[0], &files, nullptr, pointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::system_error(error, std::generic_category(), words[0]);
    process_ = id;
}

void Program::interrupt() const { ::kill(static_cast<pid_t>(process_), SIGINT); }

int Program::wait() {
    int status = 0;
    const auto id = static_cast<pid_t>(std::exchange(process_, 0));
    if (id == 0 || ::waitpid(id, &status, 0) != id) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace wrenlink::test
