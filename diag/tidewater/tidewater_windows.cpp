#include <windows.h>

#include <array>

#include "diag/tidewater/tidewater_os.h"

namespace tidewater::os {
namespace {

// Longer values and paths are taken as missing.
constexpr int kWideRoom = 1024;
using WideText = std::array<wchar_t, kWideRoom>;

// UTF-8 needs at most three bytes for a UTF-16 unit.
constinit std::array<char, std::size_t{3} * kWideRoom> environmentValue{};

// False when the text is not UTF-8, or too long.
bool toWide(const char* text, WideText& wide) noexcept {
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, wide.data(), kWideRoom) > 0;
}

}  // namespace

const char* environment(const char* name) noexcept {
    WideText wideName;
    WideText value;
    if (!toWide(name, wideName)) return nullptr;
    const DWORD length = GetEnvironmentVariableW(wideName.data(), value.data(), kWideRoom);
    if (length == 0 || length >= kWideRoom) return nullptr;
    WideCharToMultiByte(CP_UTF8, 0, value.data(), -1, environmentValue.data(),
                        static_cast<int>(environmentValue.size()), nullptr, nullptr);
    return environmentValue.data();
}

LogFile standardError() noexcept {
    HANDLE handle = GetStdHandle(STD_ERROR_HANDLE);
    return handle == nullptr ? kNoFile : reinterpret_cast<LogFile>(handle);
}

LogFile openForAppending(const char* path) noexcept {
    WideText widePath;
    if (!toWide(path, widePath)) return kNoFile;
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return reinterpret_cast<LogFile>(CreateFileW(widePath.data(), FILE_APPEND_DATA, kShareAll,
                                                 nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                                                 nullptr));
}

void close(LogFile file) noexcept { CloseHandle(reinterpret_cast<HANDLE>(file)); }

void write(LogFile file, const char* bytes, std::size_t size) noexcept {
    DWORD written = 0;
    WriteFile(reinterpret_cast<HANDLE>(file), bytes, static_cast<DWORD>(size), &written, nullptr);
}

unsigned long processId() noexcept { return GetCurrentProcessId(); }

unsigned long threadId() noexcept { return GetCurrentThreadId(); }

ErrorKeeper::ErrorKeeper() noexcept : code_(GetLastError()) {}

ErrorKeeper::~ErrorKeeper() { SetLastError(code_); }

}  // namespace tidewater::os
