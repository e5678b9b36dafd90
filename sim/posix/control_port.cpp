#include "sim/posix/control_port.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

#include "sim/text_sink.h"

namespace quillsim {
namespace {

constexpr std::size_t kLongestLine = 65536;

bool isTransient(int error) { return error == EAGAIN || error == EINTR; }

}  // namespace

ControlPort::ControlPort(EventLoop& loop, const RuntimeDirectory& directory, const Bench& bench)
    : loop_(loop), directory_(directory), bench_(bench), listener_(directory.listenControl()) {
    listenerWatch_ = loop_.watch(listener_.get(), EPOLLIN, [this](std::uint32_t) { acceptAll(); });
}

ControlPort::~ControlPort() {
    directory_.removeControl();
    loop_.unwatch(listenerWatch_);
    while (!connections_.empty()) drop(connections_.begin()->first);
}

void ControlPort::acceptAll() {
    for (;;) {
        FileDescriptor socket(
            ::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket) return;
        const Key key = nextKey_++;
        Connection& connection = connections_[key];
        connection.socket = std::move(socket);
        connection.watch = loop_.watch(connection.socket.get(), EPOLLIN,
                                       [this, key](std::uint32_t) { onEvents(key); });
    }
}

void ControlPort::onEvents(Key key) {
    const auto found = connections_.find(key);
    if (found == connections_.end()) return;
    Connection& connection = found->second;
    bool alive = true;
    // A peer that does not fetch its answers is not listened to until it does.
    if (connection.output.empty() && !connection.ended) alive = receive(connection);
    alive = alive && send(connection);
    const bool finished = connection.ended && connection.output.empty();
    if (!alive || finished) {
        drop(key);
        return;
    }
    const std::uint32_t events = connection.output.empty() ? EPOLLIN : EPOLLOUT;
    loop_.changeEvents(connection.watch, events);
}

bool ControlPort::receive(Connection& connection) {
    std::array<char, 4096> buffer{};
    const ssize_t size = ::recv(connection.socket.get(), buffer.data(), buffer.size(), 0);
    if (size < 0) return isTransient(errno);
    connection.ended = size == 0;
    connection.input.append(buffer.data(), static_cast<std::size_t>(size));
    runLines(connection);
    return connection.input.size() <= kLongestLine;
}

void ControlPort::runLines(Connection& connection) {
    TextWriter writer = writerTo(connection.output);
    std::size_t start = 0;
    for (std::size_t end = connection.input.find('\n'); end != std::string::npos;
         end = connection.input.find('\n', start)) {
        runCommand(bench_, std::string_view(connection.input).substr(start, end - start), writer);
        start = end + 1;
    }
    connection.input.erase(0, start);
}

bool ControlPort::send(Connection& connection) {
    if (connection.output.empty()) return true;
    const ssize_t size = ::send(connection.socket.get(), connection.output.data(),
                                connection.output.size(), MSG_NOSIGNAL);
    if (size < 0) return isTransient(errno);
    connection.output.erase(0, static_cast<std::size_t>(size));
    return true;
}

void ControlPort::drop(Key key) {
    const auto found = connections_.find(key);
    loop_.unwatch(found->second.watch);
    connections_.erase(found);
}

}  // namespace quillsim
