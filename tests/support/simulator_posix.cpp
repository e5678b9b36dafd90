#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

void check(bool good, const char* what) {
    if (!good) throw std::system_error(errno, std::generic_category(), what);
}

// Starts the simulator's process and waits until it says that it is ready.
pid_t startProcess(std::vector<std::string> words) {
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    int pipe[2];
    check(::pipe2(pipe, O_CLOEXEC) == 0, "pipe2");
    const pid_t id = ::fork();
    check(id >= 0, "fork");
    if (id == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);  // not to outlive a test that crashes
        ::dup2(pipe[1], STDOUT_FILENO);
        ::execv(QUILLSIM, pointers.data());
        ::_exit(127);
    }
    ::close(pipe[1]);
    char line[16] = "";
    const ssize_t size = ::read(pipe[0], line, sizeof line - 1);
    ::close(pipe[0]);
    if (size <= 0 || std::strcmp(line, "ready\n") != 0)
        throw std::runtime_error("the simulator does not start");
    return id;
}

int connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    check(::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
          "the simulator's control socket");
    return socket;
}

}  // namespace

struct Simulator::Native {
    pid_t process;
    int control;
};

std::string textOf(int nativeCode) { return std::strerror(nativeCode); }

std::string textOf(NativeError error) {
    switch (error) {
        case NativeError::noAdapter:
            return textOf(ENOENT);
        case NativeError::notOpenable:
            return textOf(ECONNREFUSED);
        case NativeError::closed:
            return textOf(ECONNRESET);
        case NativeError::cutOff:
            return textOf(EPROTO);
        case NativeError::stillPending:
            break;
    }
    return textOf(EINPROGRESS);
}

Simulator::Simulator(const AdapterIds& ids, const std::string& firmware) {
    std::vector<std::string> words = {
        QUILLSIM, "--runtime-dir", runtime_.path(),           "--firmware",
        firmware, "--adapters",    std::to_string(ids.size())};
    for (const std::uint32_t id : ids) words.insert(words.end(), {"--id", std::to_string(id)});
    const pid_t process = startProcess(words);
    native_ = new Native{process, connectTo(runtime_.path() / "quillsim.control")};
}

Simulator::~Simulator() {
    ::close(native_->control);
    ::kill(native_->process, SIGTERM);
    ::waitpid(native_->process, nullptr, 0);
    delete native_;
}

std::string Simulator::control(const std::string& line) {
    const std::string sent = line + "\n";
    check(::send(native_->control, sent.data(), sent.size(), MSG_NOSIGNAL) ==
              static_cast<ssize_t>(sent.size()),
          "send");
    std::string answer;
    for (;;) {
        char buffer[65536];
        const ssize_t size = ::recv(native_->control, buffer, sizeof buffer, 0);
        check(size > 0, "recv");
        answer.append(buffer, static_cast<std::size_t>(size));
        if (answer.back() != '\n') continue;
        const std::size_t last = answer.rfind('\n', answer.size() - 2) + 1;  // npos + 1 is 0
        if (answer.compare(last, 6, "error:") == 0)
            throw std::runtime_error(line + ": " + answer.substr(last));
        if (answer.compare(last, std::string::npos, "ok\n") == 0) return answer.substr(0, last);
    }
}

void Simulator::offerKernelObjects(bool offered) {
    const auto folder = runtime_.path() / "objects";
    offered ? static_cast<void>(std::filesystem::create_directory(folder))
            : static_cast<void>(std::filesystem::remove_all(folder));
}

void Simulator::occupyKernelName(const std::string& name) {
    std::filesystem::create_directory(runtime_.path() / "objects" / name);
}

}  // namespace wrenlink::test
