// What the Windows backend's files share: handles, the thread's error code, wide names. No state;
// a value of these types belongs to one thread at a time.
#ifndef WRENLINK_PLATFORM_NATIVE_WINDOWS_H
#define WRENLINK_PLATFORM_NATIVE_WINDOWS_H

#include <windows.h>

#include <cstddef>
#include <memory>
#include <new>
#include <string_view>

#include "platform/os.h"

namespace wrenlink::os {

// Keeps the calling thread's last-error code over its own life.
class ErrorKeeper {
   public:
    ErrorKeeper() noexcept : code_(::GetLastError()) {}
    ErrorKeeper(const ErrorKeeper&) = delete;
    ErrorKeeper& operator=(const ErrorKeeper&) = delete;
    ~ErrorKeeper() { ::SetLastError(code_); }

   private:
    const DWORD code_;
};

// The HANDLE of a native handle; null for kNoHandle, which as a HANDLE would be this process's own.
inline HANDLE toHandle(NativeHandle handle) noexcept {
    return handle == kNoHandle ? nullptr : reinterpret_cast<HANDLE>(handle);
}

// The native handle of what a system call gave; both of Windows' invalid values become kNoHandle.
inline NativeHandle fromHandle(HANDLE handle) noexcept {
    return handle == nullptr ? kNoHandle : reinterpret_cast<NativeHandle>(handle);
}

// Closes a handle, or nothing for kNoHandle, and leaves the thread's error code as it was.
inline void closeQuietly(NativeHandle handle) noexcept {
    if (handle == kNoHandle) return;
    const ErrorKeeper keeper;
    ::CloseHandle(toHandle(handle));
}

// A kernel object's name in UTF-16, each byte of the 8-bit name as one unit. get() is null, with
// the error code ERROR_NOT_ENOUGH_MEMORY, when there is no memory: no object may be made then,
// since a null name stands for an unnamed one. Short names are kept within: each exchange makes
// one, and the per-thread store needs its own to report that there is no memory.
class WideName {
   public:
    explicit WideName(std::string_view name) noexcept
        : long_(name.size() < kShort ? nullptr : new (std::nothrow) wchar_t[name.size() + 1]),
          text_(name.size() < kShort ? short_ : long_.get()) {
        if (text_ == nullptr) {
            ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return;
        }
        for (std::size_t i = 0; i < name.size(); ++i) {
            text_[i] = static_cast<unsigned char>(name[i]);
        }
        text_[name.size()] = L'\0';
    }
    WideName(const WideName&) = delete;
    WideName& operator=(const WideName&) = delete;
    ~WideName() {
        const ErrorKeeper keeper;
        long_.reset();
    }

    const wchar_t* get() const noexcept { return text_; }

   private:
    static constexpr std::size_t kShort = 256;  // with its terminator

    std::unique_ptr<wchar_t[]> long_;
    wchar_t short_[kShort];
    wchar_t* text_;
};

// Creates or opens the mutex of that name without owning it; null on failure.
inline HANDLE openMutex(std::string_view name) noexcept {
    const WideName wideName(name);
    return wideName.get() == nullptr ? nullptr : ::CreateMutexW(nullptr, FALSE, wideName.get());
}

}  // namespace wrenlink::os

#endif
