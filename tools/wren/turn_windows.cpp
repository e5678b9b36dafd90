// Named locks are the system's named mutexes.
#include <windows.h>

#include <system_error>

#include "system.h"
#include "turn.h"

namespace wren {

namespace {

HANDLE native(std::intptr_t handle) noexcept { return reinterpret_cast<HANDLE>(handle); }

}  // namespace

NamedLock::NamedLock(const std::string& name) {
    HANDLE mutex = ::CreateMutexA(nullptr, FALSE, name.c_str());
    // Another user's may let others wait for it and no more.
    if (mutex == nullptr) mutex = ::OpenMutexA(SYNCHRONIZE, FALSE, name.c_str());
    if (mutex == nullptr) {
        const auto error = static_cast<int>(::GetLastError());
        trouble_ = "'" + name + "': " + system::inUtf8(std::system_category().message(error));
    }
    handle_ = reinterpret_cast<std::intptr_t>(mutex);
}

NamedLock::~NamedLock() {
    give();
    if (handle_ != 0) ::CloseHandle(native(handle_));
}

bool NamedLock::take() noexcept {
    constexpr DWORD kMoment = 10;  // milliseconds
    const DWORD result = ::WaitForSingleObject(native(handle_), kMoment);
    return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

// Refused, and that does no harm, where this thread does not hold it.
void NamedLock::give() noexcept { ::ReleaseMutex(native(handle_)); }

// The library makes its locks anew wherever they are not there.
std::vector<std::string> missingLocks() { return {}; }

}  // namespace wren
