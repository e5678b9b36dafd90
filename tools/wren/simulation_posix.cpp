#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "failure.h"
#include "simulation.h"

namespace wren {

namespace {

namespace fs = std::filesystem;

constexpr const char* kProgram = "quillsim";
constexpr int kPatienceMilliseconds = 10000;

[[noreturn]] void fail(const std::string& text, const std::string& hint) {
    throw Failure(ExitCode::failed, "no simulated adapters: " + text, hint);
}

[[noreturn]] void failWithErrno(const char* what) {
    const int error = errno;
    fail(std::string(what) + ": " + std::generic_category().message(error), "");
}

// A folder that is gone, with all that is in it, when this is.
class PrivateFolder {
   public:
    PrivateFolder() : path_(fs::temp_directory_path() / "wren-XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) failWithErrno("a temporary folder");
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }

    const std::string& path() const noexcept { return path_; }

   private:
    std::string path_;
};

// Beside the tool, or else a name to look up on PATH.
std::string programPath() {
    std::error_code error;
    const fs::path beside = fs::read_symlink("/proc/self/exe", error).parent_path() / kProgram;
    return !error && ::access(beside.c_str(), X_OK) == 0 ? beside.string() : kProgram;
}

// In the child: becomes the simulator, which tells through the pipe when it is ready.
[[noreturn]] void becomeSimulator(std::array<std::string, 5> words, int pipe) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    ::setpgid(0, 0);  // the user's Ctrl-C is for the tool
    std::signal(SIGPIPE, SIG_DFL);
    ::dup2(pipe, STDOUT_FILENO);
    std::array<char*, words.size() + 1> pointers{};
    for (std::size_t i = 0; i < words.size(); ++i) pointers[i] = words[i].data();
    ::execvp(pointers[0], pointers.data());
    ::_exit(127);
}

bool saysReady(int pipe) {
    constexpr std::string_view kReady = "ready\n";
    std::string said;
    pollfd wait{pipe, POLLIN, 0};
    while (said.size() < kReady.size() && ::poll(&wait, 1, kPatienceMilliseconds) == 1) {
        char buffer[16];
        const ssize_t size = ::read(pipe, buffer, sizeof buffer);
        if (size <= 0) break;
        said.append(buffer, static_cast<std::size_t>(size));
    }
    return said == kReady;
}

pid_t startSimulator(const std::string& folder, unsigned adapters) {
    const std::array<std::string, 5> words{programPath(), "--runtime-dir", folder, "--adapters",
                                           std::to_string(adapters)};
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) failWithErrno("a pipe");
    const pid_t process = ::fork();
    if (process == 0) becomeSimulator(words, pipe[1]);
    ::close(pipe[1]);
    const bool ready = process > 0 && saysReady(pipe[0]);
    ::close(pipe[0]);
    if (ready) return process;
    int status = 0;
    if (process > 0) {
        ::kill(process, SIGKILL);
        ::waitpid(process, &status, 0);
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        fail("'quillsim' is missing", "put it beside wren, or on PATH");
    fail("'" + words[0] + "' does not start", "try it by hand");
}

}  // namespace

struct Simulation::Native {
    explicit Native(unsigned adapters) : process(startSimulator(folder.path(), adapters)) {}

    PrivateFolder folder;
    pid_t process;
};

Simulation::Simulation(unsigned adapters) : native_(std::make_unique<Native>(adapters).release()) {
    ::setenv("WRENLINK_RUNTIME_DIR", native_->folder.path().c_str(), 1);
    // This machine's map file takes no part.
    ::setenv("WRENLINK_DOCUMENTS_DIR", native_->folder.path().c_str(), 1);
}

Simulation::~Simulation() {
    ::kill(native_->process, SIGTERM);
    ::waitpid(native_->process, nullptr, 0);
    delete native_;
}

}  // namespace wren
