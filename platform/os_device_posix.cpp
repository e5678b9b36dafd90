// An adapter's driver is a server behind a SOCK_SEQPACKET socket in adapters/. A connection serves
// one control request:
//
//     request:    u32 control code | u32 reply capacity | the request's bytes
//     completion: u32 status, 0 or the errno with which the request failed | the reply's bytes
//
// each one message, numbers little-endian. A reply is copied by wait() and outcome() and by nothing
// else, so an abandoned request leaves nothing behind that could write to the caller's buffers.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>

#include "platform/os.h"
#include "platform/runtime_dir_posix.h"
#include "platform/unshared_posix.h"

namespace wrenlink::os {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr std::size_t kStatusBytes = 4;

struct FolderCloser {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};
using Folder = std::unique_ptr<DIR, FolderCloser>;

// The next entry of a folder; null at its end, where errno is 0, and on failure.
const dirent* nextEntry(DIR* folder) noexcept {
    errno = 0;
    return ::readdir(folder);
}

// Whether an entry is a socket; nothing when that cannot be told.
std::optional<bool> isSocket(DIR* folder, const char* name) noexcept {
    struct stat status {};
    if (::fstatat(::dirfd(folder), name, &status, AT_SYMLINK_NOFOLLOW) == 0)
        return S_ISSOCK(status.st_mode);
    if (errno == ENOENT) return false;  // gone meanwhile
    return std::nullopt;
}

void putLittleEndian(std::byte* bytes, std::uint32_t value) noexcept {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<std::byte>(value >> (8 * i));
}

std::uint32_t getLittleEndian(const std::byte* bytes) noexcept {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | std::to_integer<std::uint32_t>(bytes[i]);
    return value;
}

int connectTo(int socket, const char* path) noexcept {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    if (length == 0 || length >= sizeof address.sun_path) {
        errno = length == 0 ? ENOENT : ENAMETOOLONG;
        return -1;
    }
    std::memcpy(address.sun_path, path, length);
    return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

// A path that a socket address cannot hold is reached through a descriptor of its file.
int connectToFar(int socket, const char* path) noexcept {
    const Descriptor file(::open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!file.valid()) return -1;
    return connectTo(socket, DescriptorLink(file.get()).path());
}

// poll's time limit: rounded up, so that it never ends early.
int millisecondsUntil(Clock::time_point deadline) noexcept {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

// Lets receiving wait, so long. Until then the socket does not wait for anything.
bool limitReceiving(int socket, microseconds limit) noexcept {
    const timeval time{limit.count() / 1'000'000, limit.count() % 1'000'000};
    return ::fcntl(socket, F_SETFL, 0) == 0 &&
           ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time) == 0;
}

// The errno that a received completion tells, 0 for success. An ended connection and an empty
// message both have no bytes, but only a message has a sender.
ErrorCode completionCode(std::size_t received, bool hasSender, const std::byte* status) noexcept {
    if (received == 0 && !hasSender) return ECONNRESET;
    return received < kStatusBytes ? EPROTO : getLittleEndian(status);
}

}  // namespace

std::vector<std::string> presentAdapters(std::size_t most) {
    std::vector<std::string> paths;
    const std::string prefix = std::string(runtimeDirectory()) + "/adapters/";
    Descriptor descriptor = openRuntimeFolder("adapters", O_RDONLY);
    if (!descriptor.valid()) return paths;
    const Folder folder(::fdopendir(descriptor.get()));
    if (folder == nullptr) return paths;
    descriptor.release();
    while (const dirent* entry = nextEntry(folder.get())) {
        const std::optional<bool> found = isSocket(folder.get(), entry->d_name);
        // With a gap in the list, the adapters behind it would have other numbers.
        if (!found) return {};
        if (*found) paths.push_back(prefix + entry->d_name);
    }
    if (errno != 0) return {};
    std::sort(paths.begin(), paths.end());
    if (paths.size() > most) paths.resize(most);
    return paths;
}

bool Device::open(const char* devicePath) noexcept {
    device_ = openUnshared([] {
        return Descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    });
    const int socket = descriptorOf(device_);
    if (socket < 0) return false;
    int result = connectTo(socket, devicePath);
    if (result != 0 && errno == ENAMETOOLONG) result = connectToFar(socket, devicePath);
    if (result != 0) closeUnshared(device_);
    return result == 0;
}

// The connection itself signals a completion.
bool Device::makeEvent() noexcept { return true; }

RequestStart Device::start(std::uint32_t controlCode, const void* request, std::size_t requestSize,
                           void* reply, std::size_t replyCapacity) noexcept {
    std::array<std::byte, 8> header;
    putLittleEndian(&header[0], controlCode);
    putLittleEndian(&header[4], static_cast<std::uint32_t>(replyCapacity));
    iovec pieces[] = {{header.data(), header.size()}, {const_cast<void*>(request), requestSize}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = std::size(pieces);
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(descriptorOf(device_), &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) {
        if (errno == EPIPE) errno = ECONNRESET;
        return RequestStart::failed;
    }
    inFlight_ = true;
    reply_ = reply;
    replyCapacity_ = replyCapacity;
    errno = EINPROGRESS;
    return RequestStart::pending;
}

WaitResult Device::wait(std::uint32_t milliseconds) noexcept {
    if (!inFlight_) {
        errno = EBADF;
        return WaitResult::failed;
    }
    const auto deadline = milliseconds == kInfinite
                              ? Clock::time_point::max()
                              : Clock::now() + std::chrono::milliseconds(milliseconds);
    pollfd connection{descriptorOf(device_), POLLIN, 0};
    // Waiting in recvmsg is faster than polling first, but the kernel may let its limit run over by
    // an eighth. So recvmsg waits for most of the time, and poll for the rest, or after a signal.
    if (milliseconds > 0) {
        const microseconds most = std::chrono::milliseconds(milliseconds) * 3 / 4;
        if (!limitReceiving(connection.fd, most)) return WaitResult::failed;
        if (receive(0)) return WaitResult::acquired;
    }
    while (!receive(MSG_DONTWAIT)) {
        const int left = millisecondsUntil(deadline);
        if (left == 0) {
            errno = EINPROGRESS;
            return WaitResult::timedOut;
        }
        if (::poll(&connection, 1, left) < 0 && errno != EINTR) return WaitResult::failed;
    }
    return WaitResult::acquired;
}

bool Device::outcome() noexcept {
    if (inFlight_ && !receive(MSG_DONTWAIT)) return false;
    if (completion_ != 0) errno = static_cast<int>(completion_);
    return completion_ == 0;
}

bool Device::receive(int flags) noexcept {
    std::array<std::byte, kStatusBytes> status{};
    iovec pieces[] = {{status.data(), status.size()}, {reply_, replyCapacity_}};
    sockaddr_un sender{};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = pieces;
    message.msg_iovlen = std::size(pieces);
    const ssize_t received = ::recvmsg(descriptorOf(device_), &message, flags);
    if (received >= 0) {
        completion_ = completionCode(static_cast<std::size_t>(received), message.msg_namelen > 0,
                                     status.data());
        inFlight_ = false;
        return true;
    }
    if (errno == EAGAIN || errno == EINTR) return false;
    completion_ = static_cast<ErrorCode>(errno);
    cancelAndWait();
    return true;
}

// Tells the server now, and not only when the connection closes.
void Device::cancelAndWait() noexcept {
    const int error = errno;
    ::shutdown(descriptorOf(device_), SHUT_RDWR);
    errno = error;
    inFlight_ = false;
}

void Device::close() noexcept {
    if (inFlight_) cancelAndWait();
    closeUnshared(device_);
}

}  // namespace wrenlink::os
