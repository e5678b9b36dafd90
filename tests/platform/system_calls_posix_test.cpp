// The ways through the backend that no host alone at a simulated adapter takes: servers that end in
// between, refuse with long codes, or are slow to accept; hosts that get signals; and each system
// call fails once, or is interrupted once.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iterator>
#include <thread>

#include "platform/os.h"
#include "platform/runtime_dir_posix.h"
#include "tests/faults/faults.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {

// The call itself, which nobody lets fail.
int originalFlock(int file, int operation) __asm__("__real_flock");

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

using test::FaultPlan;
using test::FaultWindow;

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

class SystemCalls : public testing::Test {
   public:
    SystemCalls() {
        test::offerShortCuts(
            true);  // before the first use: a short cut that failed is not tried again
        chooseNamespace();
        bool existed = false;
        holder_ = FileMapping::open("held", 16, existed);
        std::filesystem::create_directory(far_.parent_path().parent_path());
        std::filesystem::create_symlink(runtime_.path() / "adapters", far_.parent_path());
    }

    // ---- Each tells whether it worked ----

    bool makeBlock() { return useBlock("block " + std::to_string(++blocks_)); }
    bool joinBlock() { return useBlock("held"); }
    bool takeBlockOver() { return comeLate(0, true); }
    // Another process is about to make the block, and ends before it has, whatever size it has
    // given it. It may have shared the block before.
    bool comeLate(off_t size, bool shared) {
        const std::string name = "late " + std::to_string(++blocks_);
        Descriptor maker = openObjectFile(name);
        originalFlock(maker.get(), LOCK_EX);
        std::thread ending([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            EXPECT_EQ(::ftruncate(maker.get(), size), 0);
            if (shared) originalFlock(maker.get(), LOCK_SH);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            maker = Descriptor();
        });
        const bool worked = useBlock(name);
        ending.join();
        return worked;
    }
    bool useMutex() {
        const FaultWindow window;
        KernelMutex mutex("mutex");
        return mutex.wait(0) == WaitResult::acquired && mutex.release() &&
               mutex.wait(kInfinite) == WaitResult::acquired && mutex.release();
    }
    bool exchangeFarAway() { return exchange(true); }
    bool waitInVain() { return exchange(false); }

   private:
    bool exchange(bool isAnswered) {
        const FaultWindow window;
        Device device;
        std::array<char, 4> reply{};
        if (!device.open(far_.c_str())) return false;
        const Descriptor connection = server_.accept();
        if (device.start(0x220000, "request", 7, reply.data(), reply.size()) !=
            RequestStart::pending)
            return false;
        if (!isAnswered)
            return device.wait(40) == WaitResult::timedOut && lastError() == ErrorCode{EINPROGRESS};
        EXPECT_EQ(::send(connection.get(), "\0\0\0\0word", 8, MSG_NOSIGNAL), 8);
        return device.wait(kInfinite) == WaitResult::acquired && device.outcome();
    }

    static bool useBlock(const std::string& name) {
        const FaultWindow window;
        bool existed = false;
        FileMapping mapping = FileMapping::open(name, 16, existed);
        void* const view = mapping.valid() ? mapping.map(16) : nullptr;
        if (view != nullptr) FileMapping::unmap(view, 16);
        return view != nullptr;
    }

    const test::TestRuntime runtime_;
    // Too long for a socket's address.
    const std::filesystem::path far_ = runtime_.path() / std::string(120, 'p') / "adapters/quill";
    const Server server_{runtime_.path() / "adapters/quill"};
    FileMapping holder_;
    unsigned blocks_ = 0;
};

TEST_F(SystemCalls, ThatFailLeaveNothingBehindAndThoseInterruptedAreRepeated) {
    using Operation = bool (SystemCalls::*)();
    const Operation operations[] = {&SystemCalls::makeBlock,       &SystemCalls::joinBlock,
                                    &SystemCalls::takeBlockOver,   &SystemCalls::useMutex,
                                    &SystemCalls::exchangeFarAway, &SystemCalls::waitInVain};
    const struct {
        bool shortCuts;
        FaultPlan::Among among;
    } rounds[] = {
        {true, FaultPlan::Among::systemCalls},
        {true, FaultPlan::Among::interruptions},
        {false, FaultPlan::Among::systemCalls},
    };
    for (const auto& round : rounds) {
        test::offerShortCuts(round.shortCuts);
        for (const Operation operation : operations) {
            const auto worksWith = [&](unsigned failing) {
                test::planFaults({round.among, failing, FaultPlan::AndThen::nothing});
                return (this->*operation)();
            };
            bool struck = true;
            for (unsigned failing = 1; struck; ++failing) {
                SCOPED_TRACE(failing);
                const std::size_t descriptors = openDescriptors();
                const bool worked = worksWith(failing);
                EXPECT_EQ(openDescriptors(), descriptors);
                struck = !test::takeFailedCalls().empty();
                EXPECT_TRUE(struck || failing > 1) << "each has calls that can";
                EXPECT_EQ(worked, !struck || round.among == FaultPlan::Among::interruptions);
                EXPECT_TRUE(worksWith(0)) << "afterwards";
            }
        }
    }
}

TEST_F(SystemCalls, BlockThatGetsAnotherSizeMeanwhileIsRefused) {
    for (const bool shared : {true, false}) {
        EXPECT_FALSE(comeLate(8, shared));
        EXPECT_EQ(lastError(), static_cast<ErrorCode>(EEXIST));
    }
}

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
