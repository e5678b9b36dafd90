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

CRITICAL_SECTION* section(std::byte* native) noexcept {
    return reinterpret_cast<CRITICAL_SECTION*>(native);
}

}  // namespace

static_assert(kInfinite == INFINITE);

KernelMutex::KernelMutex(std::string_view kernelName) noexcept
    : handle_(fromHandle(openMutex(kernelName))) {}

bool KernelMutex::valid() const noexcept { return handle_ != kNoHandle; }

WaitResult KernelMutex::wait(std::uint32_t milliseconds) noexcept {
    return waitResult(::WaitForSingleObject(toHandle(handle_), milliseconds));
}

bool KernelMutex::release() noexcept { return ::ReleaseMutex(toHandle(handle_)) != FALSE; }

void KernelMutex::close() noexcept { closeQuietly(std::exchange(handle_, kNoHandle)); }

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(LocalMutex));

LocalMutex::LocalMutex() noexcept { ::InitializeCriticalSection(section(native_)); }
void LocalMutex::destroy() noexcept { ::DeleteCriticalSection(section(native_)); }
void LocalMutex::enter() noexcept { ::EnterCriticalSection(section(native_)); }
void LocalMutex::leave() noexcept { ::LeaveCriticalSection(section(native_)); }

}  // namespace wrenlink::os
