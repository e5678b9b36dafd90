#include "sim/posix/adapter_port.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace quillsim {
namespace {

constexpr std::size_t kRequestHead = 8;  // control code and reply capacity
constexpr std::size_t kMessageRoom = std::size_t{1} << 17;

std::uint32_t loadLittle32(std::span<const std::uint8_t> bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) value = value << 8 | bytes[at + i];
    return value;
}

void storeLittle32(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

bool isHungUp(int socket) {
    pollfd entry{socket, 0, 0};
    return ::poll(&entry, 1, 0) > 0 && (entry.revents & POLLHUP) != 0;
}

// A message without room for its head counts as one with a control code that nobody serves.
Request parse(std::span<const std::uint8_t> message) {
    if (message.size() < kRequestHead) return Request{0, 0, {}};
    return Request{loadLittle32(message, 0), loadLittle32(message, 4),
                   message.subspan(kRequestHead)};
}

}  // namespace

AdapterPort::AdapterPort(EventLoop& loop, const RuntimeDirectory& directory, std::string name,
                         Adapter& adapter, CapturePoint capture)
    : loop_(loop),
      directory_(directory),
      name_(std::move(name)),
      adapter_(adapter),
      capture_(capture),
      message_(kMessageRoom),
      reply_(kReplyRoom) {}

void AdapterPort::plug() {
    listener_ = directory_.listenAdapter(name_);
    listenerWatch_ = loop_.watch(listener_.get(), EPOLLIN, [this](std::uint32_t) { acceptAll(); });
}

void AdapterPort::unplug() {
    if (!listener_) return;
    directory_.removeAdapter(name_);
    loop_.unwatch(listenerWatch_);
    listener_.reset();
    while (!connections_.empty()) drop(connections_.begin()->first);
}

void AdapterPort::acceptAll() {
    for (;;) {
        FileDescriptor socket(
            ::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket) return;
        settleHangups();
        adapter_.opened();
        const Key key = nextKey_++;
        Connection& connection = connections_[key];
        connection.socket = std::move(socket);
        connection.watch =
            loop_.watch(connection.socket.get(), EPOLLIN,
                        [this, key](std::uint32_t events) { onEvents(key, events); });
        // The first request is often there already.
        receive(key, connection);
    }
}

// A host that closed before the newcomer connected must not be counted beside it, though the loop
// has not told of it yet.
void AdapterPort::settleHangups() {
    for (auto next = connections_.begin(); next != connections_.end();) {
        const Key key = next->first;
        if (isHungUp(next->second.socket.get())) {
            onEvents(key, EPOLLHUP);
            next = connections_.lower_bound(key);
            // Still there: it left a request behind, which has been served now.
            continue;
        }
        ++next;
    }
}

void AdapterPort::onEvents(Key key, std::uint32_t events) {
    const auto found = connections_.find(key);
    if (found == connections_.end()) return;
    if (!found->second.due) {
        receive(key, found->second);
    } else if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
        drop(key);
    }
}

void AdapterPort::receive(Key key, Connection& connection) {
    const ssize_t size =
        ::recv(connection.socket.get(), message_.data(), message_.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size <= 0) {
        drop(key);
        return;
    }
    serve(key, connection, {message_.data(), static_cast<std::size_t>(size)});
}

void AdapterPort::serve(Key key, Connection& connection, std::span<const std::uint8_t> message) {
    connection.request = static_cast<std::uint32_t>(adapter_.log.last() + 1);
    capture(PacketKind::request, key, message);
    const Answer answer = adapter_.handle(parse(message), reply_);
    connection.delivery = answer.delivery;
    connection.times = answer.times;
    connection.completion.clear();
    storeLittle32(connection.completion, answer.status);
    connection.completion.insert(connection.completion.end(), reply_.begin(),
                                 reply_.begin() + static_cast<std::ptrdiff_t>(answer.replySize));
    if (answer.delivery == Delivery::runt) connection.completion.resize(answer.runtSize);

    if (answer.delayMicroseconds == 0) {
        finish(key);
        return;
    }
    // Further requests wait in the socket meanwhile.
    loop_.changeEvents(connection.watch, 0);
    const auto when = EventLoop::Clock::now() + std::chrono::microseconds(answer.delayMicroseconds);
    connection.due = loop_.callAt(when, [this, key] {
        Connection& waiting = connections_.at(key);
        waiting.due.reset();
        loop_.changeEvents(waiting.watch, EPOLLIN);
        finish(key);
    });
}

void AdapterPort::finish(Key key) {
    Connection& connection = connections_.at(key);
    if (connection.delivery == Delivery::silence) return;
    const bool closes = connection.delivery == Delivery::close;
    for (unsigned sent = 0; sent < connection.times; ++sent) {
        if (closes || ::send(connection.socket.get(), connection.completion.data(),
                             connection.completion.size(), MSG_NOSIGNAL) < 0) {
            if (sent > 0) connection.request = 0;  // it has been answered
            drop(key);
            return;
        }
        capture(PacketKind::completion, key, connection.completion);
    }
    connection.request = 0;
}

void AdapterPort::drop(Key key) {
    const auto found = connections_.find(key);
    if (found->second.request != 0) capture(PacketKind::closed, key, {});
    if (found->second.due) loop_.cancel(*found->second.due);
    loop_.unwatch(found->second.watch);
    connections_.erase(found);
    adapter_.closed();
}

void AdapterPort::capture(PacketKind kind, Key key, std::span<const std::uint8_t> message) const {
    capture_.add({kind, static_cast<std::uint32_t>(key), connections_.at(key).request, message});
}

}  // namespace quillsim
