#include <sys/socket.h>
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

}  // namespace

std::vector<std::string> adapterPaths() {
    const char* directory = std::getenv("WRENLINK_RUNTIME_DIR");
    const auto folder = std::filesystem::path(directory == nullptr ? "/run/wrenlink" : directory);
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "adapters"))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    return paths;
}

void BareExchange::run(const Frame& frame) {
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
    std::uint32_t status = 1;
    iovec reply[] = {{&status, sizeof status}, {reply_, sizeof reply_}};
    message.msg_iov = reply;
    const ssize_t received = ::recvmsg(connection, &message, 0);
    require(received == static_cast<ssize_t>(sizeof status + frame.replySize) && status == 0,
            "receive");
    ::close(connection);
}

}  // namespace wrenlink::bench
