// What the modules of a process share are kernel objects whose names end in the process's id. Other
// processes could open them by that name, but have no reason to.
#include <cstdio>

#include "platform/mapping_windows.h"
#include "platform/os.h"

namespace wrenlink::os {
namespace {

// The name of an object of this process.
class ProcessName {
   public:
    explicit ProcessName(const char* name) noexcept {
        std::snprintf(text_, sizeof text_, "%s %08lx", name, ::GetCurrentProcessId());
    }
    const char* text() const noexcept { return text_; }

   private:
    char text_[64];
};

HANDLE toHandle(ProcessMutex* mutex) noexcept { return reinterpret_cast<HANDLE>(mutex); }

}  // namespace

ProcessBlock openProcessBlock(const char* name, std::size_t size) noexcept {
    ProcessBlock block;
    HANDLE mapping = openMapping(ProcessName(name).text(), size, block.existed);
    if (mapping == nullptr) return block;
    block.handle = fromHandle(mapping);
    block.view = mapForWriting(mapping, size);
    if (block.view == nullptr) closeProcessBlock(block);
    return block;
}

void closeProcessBlock(ProcessBlock& block) noexcept {
    const ErrorKeeper keeper;
    if (block.view != nullptr) ::UnmapViewOfFile(block.view);
    closeQuietly(block.handle);
    block = ProcessBlock();
}

ProcessMutex* openProcessMutex(const char* name) noexcept {
    return reinterpret_cast<ProcessMutex*>(openMutex(ProcessName(name).text()));
}

void lockProcessMutex(ProcessMutex* mutex) noexcept {
    ::WaitForSingleObject(toHandle(mutex), INFINITE);
}

void unlockProcessMutex(ProcessMutex* mutex) noexcept { ::ReleaseMutex(toHandle(mutex)); }

void closeProcessMutex(ProcessMutex* mutex) noexcept { ::CloseHandle(toHandle(mutex)); }

bool makeThreadIndex(ThreadIndex& index) noexcept {
    index = ::TlsAlloc();
    return index != TLS_OUT_OF_INDEXES;
}

void* threadValue(ThreadIndex index) noexcept {
    const ErrorKeeper keeper;  // TlsGetValue clears the code
    return ::TlsGetValue(index);
}

bool setThreadValue(ThreadIndex index, void* value) noexcept {
    return ::TlsSetValue(index, value) != FALSE;
}

void freeThreadIndex(ThreadIndex index) noexcept { ::TlsFree(index); }

void* allocateRecord(std::size_t size) noexcept { return ::GlobalAlloc(GMEM_FIXED, size); }

void freeRecord(void* record) noexcept { ::GlobalFree(record); }

}  // namespace wrenlink::os
