// Named blocks of memory backed by the paging file.
#ifndef WRENLINK_PLATFORM_MAPPING_WINDOWS_H
#define WRENLINK_PLATFORM_MAPPING_WINDOWS_H

#include "platform/native_windows.h"

namespace wrenlink::os {

// Creates the mapping of that name and size in bytes, or opens the one that exists; `existed` tells
// which. The caller closes the handle. Null on failure, and existed is false then.
inline HANDLE openMapping(std::string_view name, std::size_t size, bool& existed) noexcept {
    existed = false;
    const WideName wideName(name);
    if (wideName.get() == nullptr) return nullptr;
    HANDLE mapping = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                          static_cast<DWORD>(size), wideName.get());
    const DWORD error = ::GetLastError();
    existed = mapping != nullptr && error == ERROR_ALREADY_EXISTS;
    return mapping;
}

// Maps the first bytes of a mapping for reading and writing; null on failure.
inline void* mapForWriting(HANDLE mapping, std::size_t size) noexcept {
    return ::MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, size);
}

}  // namespace wrenlink::os

#endif
