#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "tests/support/quillsim_posix.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

void check(bool good, const char* what) {
    if (!good) throw std::system_error(errno, std::generic_category(), what);
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
    Native(const std::filesystem::path& runtime, std::vector<std::string> words)
        : process(runtime, std::move(words)) {}

    Quillsim process;
    int control = -1;
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
    std::vector<std::string> words = {"--firmware", firmware, "--adapters",
                                      std::to_string(ids.size())};
    for (const std::uint32_t id : ids) words.insert(words.end(), {"--id", std::to_string(id)});
    auto native = std::make_unique<Native>(runtime_.path(), words);
    if (native->process.readLine() != "ready\n")
        throw std::runtime_error("the simulator does not start");
    native->control = connectTo(runtime_.path() / "quillsim.control");
    native_ = native.release();
}

Simulator::~Simulator() {
    ::close(native_->control);
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
