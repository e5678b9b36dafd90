#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "bench/bare_exchange.h"

namespace wrenlink::bench {
namespace {

void require(bool condition, const char* what) {
    if (condition) return;
    std::perror(what);
    std::exit(1);
}

std::filesystem::path runtimeDirectory() {
    const char* directory = std::getenv("WRENLINK_RUNTIME_DIR");
    return directory == nullptr ? "/run/wrenlink" : directory;
}

}  // namespace

std::string makeLock(std::string_view purpose) {
    const auto path = runtimeDirectory() / "objects" /
                      ("bench-" + std::to_string(::getpid()) + "-" +
                       std::filesystem::path(purpose).filename().string());
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    require(file >= 0, path.c_str());
    ::close(file);
    return path;
}

SharedLock::SharedLock(const std::string& path) {
    if (path.empty()) return;
    open_how how{};
    how.flags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    how.resolve = RESOLVE_NO_SYMLINKS;
    lock_ = ::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how);
    require(lock_ >= 0 && ::flock(static_cast<int>(lock_), LOCK_EX) == 0, "lock");
}

SharedLock::~SharedLock() {
    if (lock_ < 0) return;
    ::flock(static_cast<int>(lock_), LOCK_UN);
    ::close(static_cast<int>(lock_));
}

std::vector<std::string> adapterPaths() {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(runtimeDirectory() / "adapters"))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

void BareExchange::run(const Frame& frame) {
    const SharedLock lock(lock_);
    const int connection = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    devicePath_.copy(address.sun_path, sizeof address.sun_path - 1);
    require(::connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0,
            "connect");
    std::uint32_t header[] = {0x220000, frame.replySize};
    iovec request[] = {{header, sizeof header},
                       {const_cast<std::uint8_t*>(frame.bytes.data()), frame.bytes.size()}};
    msghdr message{};
    message.msg_iov = request;
    message.msg_iovlen = 2;
    require(::sendmsg(connection, &message, MSG_NOSIGNAL) > 0, "send");
    if (limited_) {
        const timeval limit{1, 0};
        require(::fcntl(connection, F_SETFL, 0) == 0 &&
                    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0,
                "time limit");
    }
    std::uint32_t status = 1;
    iovec reply[] = {{&status, sizeof status}, {reply_, sizeof reply_}};
    message.msg_iov = reply;
    const ssize_t received = ::recvmsg(connection, &message, 0);
    require(received == static_cast<ssize_t>(sizeof status + frame.replySize) && status == 0,
            "receive");
    ::close(connection);
}

}  // namespace wrenlink::bench
