#include <new>

#include "platform/native_windows.h"
#include "platform/os.h"

namespace wrenlink::os {
namespace {

WaitResult waitResult(DWORD result) noexcept {
    switch (result) {
        case WAIT_OBJECT_0:
            return WaitResult::acquired;
        case WAIT_ABANDONED:
            return WaitResult::abandoned;
        case WAIT_TIMEOUT:
            return WaitResult::timedOut;
        default:
            return WaitResult::failed;
    }
}

}  // namespace

static_assert(kInfinite == INFINITE);

KernelMutex::KernelMutex(const std::string& kernelName) noexcept
    : handle_(fromHandle(openMutex(kernelName))) {}

KernelMutex& KernelMutex::operator=(KernelMutex&& other) noexcept {
    if (this != &other) {
        close();
        handle_ = std::exchange(other.handle_, kNoHandle);
    }
    return *this;
}

WaitResult KernelMutex::wait(std::uint32_t milliseconds) noexcept {
    return waitResult(::WaitForSingleObject(toHandle(handle_), milliseconds));
}

bool KernelMutex::release() noexcept { return ::ReleaseMutex(toHandle(handle_)) != FALSE; }

void KernelMutex::close() noexcept { closeQuietly(std::exchange(handle_, kNoHandle)); }

struct LocalMutex {
    CRITICAL_SECTION section;
};

LocalMutex* makeLocalMutex() noexcept {
    auto* const made = new (std::nothrow) LocalMutex;
    if (made != nullptr) ::InitializeCriticalSection(&made->section);
    return made;
}

void enterLocalMutex(LocalMutex* mutex) noexcept { ::EnterCriticalSection(&mutex->section); }
void leaveLocalMutex(LocalMutex* mutex) noexcept { ::LeaveCriticalSection(&mutex->section); }

void destroyLocalMutex(LocalMutex* mutex) noexcept {
    ::DeleteCriticalSection(&mutex->section);
    delete mutex;
}

}  // namespace wrenlink::os
