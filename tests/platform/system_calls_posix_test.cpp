// Every call of the operating system fails once, or is interrupted once. CMakeLists.txt has the
// linker put the decorators below in front of the calls.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <thread>

#include "platform/os.h"
#include "platform/runtime_dir_posix.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {
namespace {

// Which of the calls in a window fails, counted from 1, and with which error.
struct {
    bool windowOpen = false;
    int error = 0;
    unsigned failing = 0;
    unsigned counted = 0;
    const char* failed = nullptr;
    bool systemIsOld = false;
} plan;

// EINTR strikes only calls that have to be repeated then.
bool strikes(const char* call, bool repeats) {
    if (!plan.windowOpen || (plan.error == EINTR && !repeats)) return false;
    if (++plan.counted != plan.failing) return false;
    plan.failed = call;
    errno = plan.error;
    return true;
}

#define DECORATE(name, repeats, Result, failure, parameters, arguments)         \
    Result original_##name parameters __asm__("__real_" #name);                 \
    Result decorated_##name parameters __asm__("__wrap_" #name);                \
    Result decorated_##name parameters {                                        \
        return strikes(#name, repeats) ? (failure) : original_##name arguments; \
    }

}  // namespace

DECORATE(fchmod, false, int, -1, (int file, mode_t mode), (file, mode))
DECORATE(fdopen, false, std::FILE*, nullptr, (int file, const char* mode), (file, mode))
DECORATE(fdopendir, false, DIR*, nullptr, (int file), (file))
DECORATE(flock, true, int, -1, (int file, int operation), (file, operation))
DECORATE(fstat, false, int, -1, (int file, struct stat* status), (file, status))
DECORATE(fstatat, false, int, -1, (int folder, const char* name, struct stat* status, int flags),
         (folder, name, status, flags))
DECORATE(ftruncate, false, int, -1, (int file, off_t size), (file, size))
DECORATE(mmap, false, void*, MAP_FAILED,
         (void* at, std::size_t size, int access, int flags, int file, off_t offset),
         (at, size, access, flags, file, offset))
DECORATE(open, false, int, -1, (const char* path, int flags, mode_t mode), (path, flags, mode))
DECORATE(openat, false, int, -1, (int folder, const char* name, int flags, mode_t mode),
         (folder, name, flags, mode))
DECORATE(poll, true, int, -1, (pollfd * files, nfds_t count, int milliseconds),
         (files, count, milliseconds))
DECORATE(pwrite, true, ssize_t, -1, (int file, const void* bytes, std::size_t size, off_t at),
         (file, bytes, size, at))
DECORATE(recvmsg, true, ssize_t, -1, (int socket, msghdr* message, int flags),
         (socket, message, flags))
DECORATE(sendmsg, true, ssize_t, -1, (int socket, const msghdr* message, int flags),
         (socket, message, flags))
DECORATE(socket, false, int, -1, (int family, int type, int protocol), (family, type, protocol))

// What an old system does not know is no failure: the library goes another way then.
long original_syscall(long number, ...) __asm__("__real_syscall");
long decorated_syscall(long number, int folder, const char* path, void* how,
                       std::size_t size) __asm__("__wrap_syscall");
long decorated_syscall(long number, int folder, const char* path, void* how, std::size_t size) {
    if (!plan.systemIsOld) return original_syscall(number, folder, path, how, size);
    errno = ENOSYS;
    return -1;
}

namespace {

// What the library does inside counts; what the test does around it does not.
template <class Work>
auto watched(Work work) {
    plan.windowOpen = true;
    auto result = work();
    plan.windowOpen = false;
    return result;
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

class SystemCalls : public testing::Test {
   public:
    SystemCalls() {
        const std::filesystem::path adapters = runtime_.path() / "adapters";
        sockaddr_un address{AF_UNIX, {}};
        (adapters / "quill").native().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(server_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(server_.get(), 1), 0);
        std::filesystem::create_directory(far_.parent_path().parent_path());
        std::filesystem::create_symlink(adapters, far_.parent_path());
    }

    // ---- What needs the system; each tells whether it worked ----

    bool makeBlock() { return useBlock("block " + std::to_string(round_)); }
    bool joinBlock() { return useBlock("held"); }
    // Another process is about to make the block, and ends before it has.
    bool takeBlockOver() {
        const std::string name = "late " + std::to_string(round_);
        Descriptor maker = openObjectFile(name, 16);
        EXPECT_EQ(original_flock(maker.get(), LOCK_EX), 0);
        std::thread ending([&maker] {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            original_flock(maker.get(), LOCK_SH);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            maker = Descriptor();
        });
        const bool worked = useBlock(name);
        ending.join();
        return worked;
    }
    bool useMutex() {
        return watched([] {
            KernelMutex mutex("mutex");
            return mutex.wait(0) == WaitResult::acquired && mutex.release() &&
                   mutex.wait(kInfinite) == WaitResult::acquired && mutex.release();
        });
    }
    bool listAdapters() {
        return watched([] { return presentAdapters(32).size() == 1; });
    }
    bool exchange() {
        Device device;
        std::array<char, 4> reply{};
        if (!watched([&] { return device.open(far_.c_str()); })) return false;
        const Descriptor connection(::accept(server_.get(), nullptr, nullptr));
        const auto start = [&] {
            return device.start(0x220000, "request", 7, reply.data(), reply.size());
        };
        if (watched(start) != RequestStart::pending) return false;
        EXPECT_EQ(::send(connection.get(), "\0\0\0\0word", 8, MSG_NOSIGNAL), 8);
        return watched(
            [&] { return device.wait(kInfinite) == WaitResult::acquired && device.outcome(); });
    }
    bool openText() {
        return watched([] {
            std::FILE* const file = openTextFile("/proc/self/cmdline");
            return file != nullptr && std::fclose(file) == 0;
        });
    }

    // Lets one call fail after another until a run is clean, and tells how many did.
    unsigned failEachCall(int error, bool (SystemCalls::*operation)()) {
        for (plan.failing = 1;; ++plan.failing) {
            ++round_;
            plan.error = error;
            plan.counted = 0;
            plan.failed = nullptr;
            const std::size_t descriptors = openDescriptors();
            const bool worked = (this->*operation)();
            EXPECT_EQ(openDescriptors(), descriptors) << plan.failed;
            if (plan.failed == nullptr) {
                EXPECT_TRUE(worked);
                return plan.failing - 1;
            }
            EXPECT_EQ(worked, error == EINTR) << plan.failed;
            EXPECT_TRUE((this->*operation)()) << "after " << plan.failed << " failed";
        }
    }

   private:
    static bool useBlock(const std::string& name) {
        return watched([&] {
            bool existed = false;
            FileMapping mapping = FileMapping::open(name, 16, existed);
            void* const view = mapping.valid() ? mapping.map(16) : nullptr;
            if (view != nullptr) FileMapping::unmap(view, 16);
            return view != nullptr;
        });
    }

    const test::TestRuntime runtime_;
    // Too long for a socket's address.
    const std::filesystem::path far_ = runtime_.path() / std::string(120, 'p') / "adapters/quill";
    const Descriptor server_{::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    bool existed_ = false;
    const FileMapping holder_ = FileMapping::open("held", 16, existed_);
    unsigned round_ = 0;
};

TEST_F(SystemCalls, ThatFailLeaveNothingBehindAndThoseInterruptedAreRepeated) {
    const struct {
        const char* what;
        bool (SystemCalls::*run)();
    } operations[] = {
        {"make a block", &SystemCalls::makeBlock},
        {"join a block", &SystemCalls::joinBlock},
        {"take a block over", &SystemCalls::takeBlockOver},
        {"use a mutex", &SystemCalls::useMutex},
        {"list the adapters", &SystemCalls::listAdapters},
        {"exchange", &SystemCalls::exchange},
        {"open a text", &SystemCalls::openText},
    };
    unsigned failed = 0;
    unsigned interrupted = 0;
    for (const bool old : {false, true}) {
        plan.systemIsOld = old;
        for (const auto& operation : operations) {
            SCOPED_TRACE(operation.what);
            failed += failEachCall(EIO, operation.run);
            interrupted += failEachCall(EINTR, operation.run);
        }
    }
    std::printf("%u calls failed, %u were interrupted\n", failed, interrupted);
}

}  // namespace
}  // namespace wrenlink::os
