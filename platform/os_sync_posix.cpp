// Kernel mutexes are whole-file locks (flock) on files of the runtime directory: the kernel frees
// one with its last descriptor. What the file holds, how many names it has, even whether it is a
// file or a pipe does not matter to the lock, and all who open the name get the same one; so nobody
// looks. A link, which would lead elsewhere, a folder and a socket cannot be opened.
#include <pthread.h>
#include <sys/file.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/os.h"
#include "platform/runtime_dir_posix.h"
#include "platform/unshared_posix.h"

namespace wrenlink::os {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr microseconds kFirstPause(50);
constexpr microseconds kLongestPause(5000);

// A file lock has no time-out of its own, so this asks again and again, ever less often.
WaitResult waitUntil(int file, Clock::time_point deadline) noexcept {
    for (microseconds pause = kFirstPause;; pause = std::min(2 * pause, kLongestPause)) {
        if (lockObjectFile(file, LOCK_EX | LOCK_NB)) return WaitResult::acquired;
        if (errno != EWOULDBLOCK) return WaitResult::failed;
        const auto left = std::chrono::ceil<microseconds>(deadline - Clock::now());
        if (left <= microseconds::zero()) return WaitResult::timedOut;
        std::this_thread::sleep_for(std::min(pause, left));
    }
}

pthread_mutex_t* mutex(std::byte* native) noexcept {
    return reinterpret_cast<pthread_mutex_t*>(native);
}

}  // namespace

KernelMutex::KernelMutex(std::string_view kernelName) noexcept
    : handle_(openUnshared([&] { return openObjectFile(kernelName); })) {}

bool KernelMutex::valid() const noexcept { return descriptorOf(handle_) >= 0; }

WaitResult KernelMutex::wait(std::uint32_t milliseconds) noexcept {
    const int file = descriptorOf(handle_);
    if (milliseconds == kInfinite) {
        return lockObjectFile(file, LOCK_EX) ? WaitResult::acquired : WaitResult::failed;
    }
    return waitUntil(file, Clock::now() + std::chrono::milliseconds(milliseconds));
}

bool KernelMutex::release() noexcept { return lockObjectFile(descriptorOf(handle_), LOCK_UN); }

void KernelMutex::close() noexcept { closeUnshared(handle_); }

static_assert(sizeof(pthread_mutex_t) <= sizeof(LocalMutex));

LocalMutex::LocalMutex() noexcept {
    pthread_mutexattr_t attributes;
    ::pthread_mutexattr_init(&attributes);
    ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    ::pthread_mutex_init(mutex(native_), &attributes);
    ::pthread_mutexattr_destroy(&attributes);
}

void LocalMutex::destroy() noexcept { ::pthread_mutex_destroy(mutex(native_)); }

void LocalMutex::enter() noexcept { ::pthread_mutex_lock(mutex(native_)); }
void LocalMutex::leave() noexcept { ::pthread_mutex_unlock(mutex(native_)); }

}  // namespace wrenlink::os
