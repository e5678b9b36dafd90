#include <windows.h>

#include <system_error>

#include "tests/support/loaded_module.h"

namespace wrenlink::test {
namespace {

HANDLE nextHandle() {
    HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    ::CloseHandle(event);
    return event;
}

DWORD nextThreadIndex() {
    const DWORD index = ::TlsAlloc();
    ::TlsFree(index);
    return index;
}

std::size_t countMappings() {
    std::size_t count = 0;
    MEMORY_BASIC_INFORMATION region;
    for (const char* at = nullptr; ::VirtualQuery(at, &region, sizeof region) != 0;
         at = static_cast<const char*>(region.BaseAddress) + region.RegionSize) {
        if (region.Type == MEM_MAPPED || region.Type == MEM_IMAGE) ++count;
    }
    return count;
}

// What GlobalAlloc and the language's runtime take.
std::size_t countHeapBytes() {
    std::size_t bytes = 0;
    HANDLE heaps[64];
    const DWORD count = ::GetProcessHeaps(64, heaps);
    for (HANDLE* heap = heaps; heap != heaps + count; ++heap) {
        PROCESS_HEAP_ENTRY entry{};
        ::HeapLock(*heap);
        while (::HeapWalk(*heap, &entry)) {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
        }
        ::HeapUnlock(*heap);
    }
    return bytes;
}

}  // namespace

bool isLoaded(const std::string& path) { return ::GetModuleHandleA(path.c_str()) != nullptr; }

LoadedModule::LoadedModule(const std::string& path) : handle_(::LoadLibraryA(path.c_str())) {
    if (handle_ == nullptr)
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), path);
}

LoadedModule::~LoadedModule() { ::FreeLibrary(static_cast<HMODULE>(handle_)); }

void* LoadedModule::symbol(const char* name) const {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(handle_), name));
}

const std::uint64_t kStrayHandles = 16;  // four; their values are multiples of 4

Holdings takeStock() {
    return {reinterpret_cast<std::uint64_t>(nextHandle()), nextThreadIndex(), countMappings(),
            countHeapBytes()};
}

}  // namespace wrenlink::test
