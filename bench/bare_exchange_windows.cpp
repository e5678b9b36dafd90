#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "bench/bare_exchange.h"
#include "sim/windows/adapter_list.h"

namespace wrenlink::bench {
namespace {

constexpr DWORD kControlCode = 0x220000;
constexpr DWORD kTimeLimitMs = 1000;

void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "%s: error %lu\n", what, ::GetLastError());
    std::exit(1);
}

}  // namespace

std::string makeLock(std::string_view) {
    return "bench-" + std::to_string(::GetCurrentProcessId());
}

SharedLock::SharedLock(const std::string& name) {
    if (name.empty()) return;
    const HANDLE mutex = ::CreateMutexA(nullptr, FALSE, name.c_str());
    require(::WaitForSingleObject(mutex, INFINITE) == WAIT_OBJECT_0, "lock");
    lock_ = reinterpret_cast<std::intptr_t>(mutex);
}

SharedLock::~SharedLock() {
    if (lock_ < 0) return;
    const HANDLE mutex = reinterpret_cast<HANDLE>(lock_);
    ::ReleaseMutex(mutex);
    ::CloseHandle(mutex);
}

std::vector<std::string> adapterPaths() { return quillsim::listAdapters(); }

void BareExchange::run(const Frame& frame) {
    const SharedLock lock(lock_);
    const HANDLE device =
        ::CreateFileA(devicePath_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                      limited_ ? FILE_FLAG_OVERLAPPED : 0, nullptr);
    require(device != INVALID_HANDLE_VALUE, "open");
    OVERLAPPED overlapped{};
    if (limited_) overlapped.hEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    DWORD received = 0;
    BOOL done =
        ::DeviceIoControl(device, kControlCode, const_cast<std::uint8_t*>(frame.bytes.data()),
                          static_cast<DWORD>(frame.bytes.size()), reply_, frame.replySize,
                          &received, limited_ ? &overlapped : nullptr);
    if (limited_) {
        require(done || ::GetLastError() == ERROR_IO_PENDING, "start");
        require(::WaitForSingleObject(overlapped.hEvent, kTimeLimitMs) == WAIT_OBJECT_0, "wait");
        done = ::GetOverlappedResult(device, &overlapped, &received, FALSE);
        ::CloseHandle(overlapped.hEvent);
    }
    require(done && received == frame.replySize, "request");
    ::CloseHandle(device);
}

}  // namespace wrenlink::bench
