// Conversions between UTF-8 and the system's UTF-16.
#ifndef WRENLINK_PLATFORM_TEXT_WINDOWS_H
#define WRENLINK_PLATFORM_TEXT_WINDOWS_H

#include <windows.h>

#include <string>
#include <string_view>

namespace wrenlink::os {

// The UTF-8 form of a UTF-16 text.
inline std::string toUtf8(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    const int size =
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string converted(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, converted.data(), size, nullptr,
                          nullptr);
    return converted;
}

// The UTF-16 form of a UTF-8 text; empty when it is not one.
inline std::wstring fromUtf8(std::string_view text) {
    const int length = static_cast<int>(text.size());
    const int size =
        ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, nullptr, 0);
    std::wstring converted(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, converted.data(),
                          size);
    return converted;
}

}  // namespace wrenlink::os

#endif
