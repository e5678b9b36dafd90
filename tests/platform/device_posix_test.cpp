// What the simulator does not do: servers that end in between, refuse with long codes, or are slow
// to accept; and hosts that get signals.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>

#include "platform/descriptor_posix.h"
#include "platform/os.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {
namespace {

// A driver that serves nobody of itself.
class Server {
   public:
    explicit Server(const std::filesystem::path& path)
        : listener_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        std::filesystem::remove(path);
        sockaddr_un address{AF_UNIX, {}};
        path.native().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address),
                  0);
        EXPECT_EQ(::listen(listener_.get(), 0), 0);
    }
    // The connection that waits.
    Descriptor accept() const { return Descriptor(::accept(listener_.get(), nullptr, nullptr)); }

   private:
    Descriptor listener_;
};

class DeviceTest : public testing::Test {
   protected:
    RequestStart start() { return device_.start(0x220000, "request", 7, reply_.data(), 4); }
    ErrorCode openError() { return device_.open(path_.c_str()) ? 0 : lastError(); }

    const test::TestRuntime runtime_;
    const std::filesystem::path path_ = runtime_.path() / "adapters" / "quill";
    std::array<char, 4> reply_{};
    Device device_;
};

TEST_F(DeviceTest, ServerThatIsGoneBeforeTheRequestIsReset) {
    EXPECT_EQ(device_.wait(0), WaitResult::failed) << "nothing was started";
    for (const bool accepted : {true, false}) {
        {
            const Server server(path_);
            ASSERT_TRUE(device_.open(path_.c_str()));
            if (accepted) server.accept();  // and close
        }
        EXPECT_EQ(start(), RequestStart::failed);
        EXPECT_EQ(lastError(), static_cast<ErrorCode>(ECONNRESET)) << accepted;
        device_.close();
    }
}

TEST_F(DeviceTest, RefusalCarriesItsWholeCode) {
    const Server server(path_);
    ASSERT_TRUE(device_.open(path_.c_str()));
    EXPECT_EQ(start(), RequestStart::pending);
    const Descriptor connection = server.accept();
    EXPECT_FALSE(device_.outcome());
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(EAGAIN)) << "no outcome yet, and none waited for";
    ::send(connection.get(), "\x0D\x01\0\0abcd", 8, MSG_NOSIGNAL);
    EXPECT_FALSE(device_.outcome());
    EXPECT_EQ(lastError(), 0x10DU);
}

// Signals that come all the time neither end a wait early nor let it go on for ever.
TEST_F(DeviceTest, SignalsDoNotChangeTheTimeLimit) {
    const Server server(path_);
    ASSERT_TRUE(device_.open(path_.c_str()));
    EXPECT_EQ(start(), RequestStart::pending);
    std::signal(SIGALRM, [](int) {});
    const itimerval everyFiveMilliseconds{{0, 5000}, {0, 5000}};
    ::setitimer(ITIMER_REAL, &everyFiveMilliseconds, nullptr);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(device_.wait(100), WaitResult::timedOut);
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(EINPROGRESS));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(100));
    const itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    std::signal(SIGALRM, SIG_DFL);
}

TEST_F(DeviceTest, OpenFailsAtOnceWithoutAServerThatListens) {
    EXPECT_FALSE(device_.open(""));
    EXPECT_EQ(lastError(), static_cast<ErrorCode>(ENOENT));
    EXPECT_EQ(openError(), static_cast<ErrorCode>(ENOENT));
    {
        const Server server(path_);
        Device first;
        EXPECT_TRUE(first.open(path_.c_str()));
        EXPECT_EQ(openError(), static_cast<ErrorCode>(EAGAIN)) << "nobody takes the first one";
    }
    EXPECT_EQ(openError(), static_cast<ErrorCode>(ECONNREFUSED));
}

}  // namespace
}  // namespace wrenlink::os
