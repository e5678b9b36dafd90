// Control requests against a server of the test's own.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "platform/descriptor_posix.h"
#include "platform/os.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {
namespace {

using namespace std::string_literals;

constexpr std::uint32_t kControlCode = 0x220000;

// A driver that serves one connection: it takes the request and then does as it is told.
class Server {
   public:
    using Serve = std::function<void(int connection)>;

    // Binds in the folder of the path, so that the length of the path does not matter.
    Server(const std::filesystem::path& path, const Serve& serve)
        : listener_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        const std::filesystem::path former = std::filesystem::current_path();
        std::filesystem::current_path(path.parent_path());
        sockaddr_un address{AF_UNIX, {}};
        path.filename().native().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address),
                  0);
        std::filesystem::current_path(former);
        EXPECT_EQ(::listen(listener_.get(), 0), 0);
        if (serve) thread_ = std::thread([this, serve] { run(serve); });
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() {
        if (thread_.joinable()) thread_.join();
    }

    // Takes a waiting connection and ends it; for a server that serves none.
    void dropConnection() {
        const Descriptor connection(::accept(listener_.get(), nullptr, nullptr));
        EXPECT_TRUE(connection.valid());
    }

    // The request as it came; complete when the server has ended.
    const std::string& request() {
        if (thread_.joinable()) thread_.join();
        return request_;
    }

   private:
    void run(const Serve& serve) {
        const Descriptor connection(::accept(listener_.get(), nullptr, nullptr));
        char buffer[256];
        const ssize_t size = ::recv(connection.get(), buffer, sizeof buffer, 0);
        if (size > 0) request_.assign(buffer, static_cast<std::size_t>(size));
        serve(connection.get());
    }

    Descriptor listener_;
    std::string request_;
    std::thread thread_;
};

Server::Serve replyWith(const std::string& message) {
    return [message](int connection) {
        EXPECT_EQ(::send(connection, message.data(), message.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(message.size()));
    };
}

class DeviceTest : public testing::Test {
   protected:
    DeviceTest() : path_(runtime_.path() / "adapters" / "quill") {}

    // One request for a reply of at most four bytes.
    RequestStart start(Device& device) {
        EXPECT_TRUE(device.open(path_.c_str())) << std::strerror(errno);
        EXPECT_TRUE(device.makeEvent());
        return device.start(kControlCode, "request", 7, reply_.data(), 4);
    }

    // The whole exchange; the error is 0 for success.
    ErrorCode exchange() {
        Device device;
        EXPECT_EQ(start(device), RequestStart::pending);
        EXPECT_EQ(lastError(), static_cast<ErrorCode>(EINPROGRESS));
        EXPECT_EQ(device.wait(kInfinite), WaitResult::acquired);
        return device.outcome() ? 0 : lastError();
    }

    std::string reply() const { return {reply_.data(), reply_.size()}; }

    test::TestRuntime runtime_;
    std::filesystem::path path_;
    std::array<char, 6> reply_ = {'.', '.', '.', '.', '.', '.'};
};

TEST_F(DeviceTest, CompletionsHaveTheirOutcomes) {
    const struct {
        std::string completion;
        int error;
        std::string reply;
    } cases[] = {
        {"\0\0\0\0abcd"s, 0, "abcd.."}, {"\0\0\0\0ab"s, 0, "ab...."},
        {"\0\0\0\0"s, 0, "......"},     {"\0\0\0\0abcdefgh"s, 0, "abcd.."},
        {"\x05\0\0\0"s, EIO, "......"}, {"\x0D\x01\0\0"s, 0x10D, "......"},
        {"\0\0\0"s, EPROTO, "......"},  {""s, EPROTO, "......"},
    };
    for (const auto& row : cases) {
        reply_.fill('.');
        std::filesystem::remove(path_);
        Server server(path_, replyWith(row.completion));
        EXPECT_EQ(exchange(), static_cast<ErrorCode>(row.error)) << row.completion.size();
        EXPECT_EQ(reply(), row.reply);
        EXPECT_EQ(server.request(), "\0\0\x22\0\x04\0\0\0request"s);
    }
}

TEST_F(DeviceTest, ClosedConnectionIsReset) {
    const Server server(path_, [](int) {});
    EXPECT_EQ(exchange(), static_cast<ErrorCode>(ECONNRESET));
}

TEST_F(DeviceTest, ServerThatIsGoneBeforeTheRequestIsReset) {
    for (const bool accepted : {true, false}) {
        std::filesystem::remove(path_);
        Device device;
        {
            Server server(path_, nullptr);
            ASSERT_TRUE(device.open(path_.c_str()));
            if (accepted) server.dropConnection();
        }
        EXPECT_EQ(device.start(kControlCode, "request", 7, reply_.data(), 4), RequestStart::failed);
        EXPECT_EQ(lastError(), static_cast<ErrorCode>(ECONNRESET)) << accepted;
    }
}

TEST_F(DeviceTest, LateReplyLandsNowhere) {
    std::promise<void> abandoned;
    Server server(path_, [&](int connection) {
        abandoned.get_future().wait();
        ::send(connection, "\0\0\0\0late", 8, MSG_NOSIGNAL);
    });
    {
        Device device;
        EXPECT_EQ(start(device), RequestStart::pending);
        errno = 0;
        EXPECT_EQ(device.wait(20), WaitResult::timedOut);
        EXPECT_EQ(lastError(), static_cast<ErrorCode>(EINPROGRESS));
        device.close();
        EXPECT_EQ(lastError(), static_cast<ErrorCode>(EINPROGRESS));
    }
    abandoned.set_value();
    EXPECT_EQ(server.request().substr(8), "request");
    EXPECT_EQ(reply(), "......");
}

TEST_F(DeviceTest, OpenFailsAtOnceWithoutAServerThatListens) {
    Device device;
    EXPECT_FALSE(device.open(path_.c_str()));
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ENOENT));
    EXPECT_FALSE(device.open(""));
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ENOENT));
    {
        const Server server(path_, nullptr);
        Device first;
        EXPECT_TRUE(first.open(path_.c_str()));
        EXPECT_FALSE(device.open(path_.c_str())) << "nobody takes the first connection";
        EXPECT_EQ(lastError(), static_cast<ErrorCode>(EAGAIN));
    }
    EXPECT_FALSE(device.open(path_.c_str()));
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ECONNREFUSED));
}

TEST_F(DeviceTest, LongPathsReachTheirServer) {
    path_ = runtime_.path() / std::string(120, 'p') / std::string(100, 'q');
    std::filesystem::create_directory(path_.parent_path());
    const Server server(path_, replyWith("\0\0\0\0long"s));
    EXPECT_EQ(exchange(), 0U);
    EXPECT_EQ(reply(), "long..");
}

}  // namespace
}  // namespace wrenlink::os
