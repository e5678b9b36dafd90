#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "failure.h"
#include "interruption.h"
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
    PrivateFolder() {
        std::error_code error;
        path_ = fs::temp_directory_path(error) / "wren-XXXXXX";
        if (error) fail("a temporary folder: " + error.message(), "let TMPDIR name one");
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

// In the child: becomes the simulator, which tells through the pipe when it is ready, and what
// goes wrong.
[[noreturn]] void becomeSimulator(std::vector<std::string> words, int pipe) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    ::setpgid(0, 0);  // the user's Ctrl-C is for the tool
    std::signal(SIGPIPE, SIG_DFL);
    ::dup2(pipe, STDOUT_FILENO);
    ::dup2(pipe, STDERR_FILENO);
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    ::execvp(pointers[0], pointers.data());
    ::_exit(127);
}

// The next that comes through the pipe, up to the end of a line or of the output.
std::string readLine(int pipe) {
    std::string said;
    pollfd wait{pipe, POLLIN, 0};
    while (said.find('\n') == std::string::npos && ::poll(&wait, 1, kPatienceMilliseconds) == 1) {
        char buffer[256];
        const ssize_t size = ::read(pipe, buffer, sizeof buffer);
        if (size <= 0) break;
        said.append(buffer, static_cast<std::size_t>(size));
    }
    return said.substr(0, said.find('\n'));
}

struct Process {
    pid_t id;
    int output;  // what it writes, errors included

    // Returns its status.
    int end(int signal) {
        int status = 0;
        ::kill(id, signal);
        ::waitpid(std::exchange(id, -1), &status, 0);
        ::close(output);
        return status;
    }
};

Process startSimulator(const std::string& folder, unsigned adapters,
                       const std::string& captureFile) {
    std::vector<std::string> words{programPath(), "--runtime-dir", folder, "--adapters",
                                   std::to_string(adapters)};
    if (!captureFile.empty()) words.insert(words.end(), {"--capture", captureFile});
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) failWithErrno("a pipe");
    Process process{::fork(), pipe[0]};
    if (process.id == 0) becomeSimulator(words, pipe[1]);
    ::close(pipe[1]);
    if (process.id < 0) failWithErrno("a process");
    const std::string said = readLine(process.output);
    if (said == "ready") return process;
    const int status = process.end(SIGKILL);
    if (interrupted()) throw Failure(ExitCode::interrupted, "interrupted");
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        fail("'quillsim' is missing", "put it beside wren, or on PATH");
    if (!said.empty()) fail(said, "");
    fail("'" + words[0] + "' does not start", "try it by hand");
}

}  // namespace

struct Simulation::Native {
    Native(unsigned adapters, const std::string& captureFile)
        : process(startSimulator(folder.path(), adapters, captureFile)) {}

    PrivateFolder folder;
    Process process;
};

Simulation::Simulation(unsigned adapters, const std::string& captureFile)
    : native_(std::make_unique<Native>(adapters, captureFile).release()) {
    ::setenv("WRENLINK_RUNTIME_DIR", native_->folder.path().c_str(), 1);
    // This machine's map file takes no part.
    ::setenv("WRENLINK_DOCUMENTS_DIR", native_->folder.path().c_str(), 1);
}

Simulation::~Simulation() {
    if (native_->process.id >= 0) native_->process.end(SIGTERM);
    delete native_;
}

void Simulation::finish() {
    Process& process = native_->process;
    ::kill(process.id, SIGTERM);
    const std::string complaint = readLine(process.output);
    process.end(SIGTERM);
    if (!complaint.empty()) throw Failure(ExitCode::failed, complaint);
}

}  // namespace wren
