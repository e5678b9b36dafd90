#include "sim/posix/control_client.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "sim/posix/runtime_directory.h"

namespace quillsim {
namespace {

void check(bool good) {
    if (!good) throw std::system_error(errno, std::generic_category(), "control");
}

}  // namespace

ControlClient::ControlClient(const std::string& runtimeDirectory)
    : socket_(connectControl(runtimeDirectory)) {}

std::string ControlClient::run(const std::string& line) {
    const std::string sent = line + '\n';
    check(::send(socket_.get(), sent.data(), sent.size(), MSG_NOSIGNAL) ==
          static_cast<ssize_t>(sent.size()));
    std::string answer;
    for (std::array<char, 65536> buffer;;) {
        const ssize_t size = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
        check(size >= 0);
        if (size == 0) throw std::runtime_error("no answer");
        answer.append(buffer.data(), static_cast<std::size_t>(size));
        if (answer.back() != '\n') continue;
        const std::size_t last = answer.rfind('\n', answer.size() - 2) + 1;  // npos + 1 is 0
        const std::string outcome = answer.substr(last, answer.size() - last - 1);
        if (outcome == "ok") return answer.substr(0, last);
        if (outcome.compare(0, 6, "error:") == 0) throw std::runtime_error(outcome);
    }
}

}  // namespace quillsim
