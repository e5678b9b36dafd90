#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "tests/support/child_process.h"

namespace wrenlink::test {
namespace {

void check(int error, const char* what) {
    if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

struct Pipe {
    int ends[2];  // to read from, to write to

    Pipe() { check(::pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno, "pipe2"); }
};

}  // namespace

struct ChildProcess::Native {
    pid_t id = 0;
};

ChildProcess::ChildProcess(const std::string& role, const Arguments& arguments)
    : native_(new Native) {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    Arguments words = {program, "--child", role};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);

    const Pipe up;
    const Pipe down;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, down.ends[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, up.ends[1], STDOUT_FILENO);
    const int error =
        ::posix_spawn(&native_->id, program.c_str(), &actions, nullptr, pointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(down.ends[0]);
    ::close(up.ends[1]);
    fromChild_ = ::fdopen(up.ends[0], "r");
    toChild_ = ::fdopen(down.ends[1], "w");
    check(error, "posix_spawn");
}

void ChildProcess::kill() {
    if (native_ == nullptr) return;
    ::kill(native_->id, SIGKILL);
    ::waitpid(native_->id, nullptr, 0);
    std::fclose(fromChild_);
    std::fclose(toChild_);
    delete native_;
    native_ = nullptr;
}

}  // namespace wrenlink::test
