// A small block of memory that processes share by its name, mapped when it is first wanted. One
// object may be used by several threads.
#ifndef WRENLINK_PLATFORM_SHARED_MEMORY_H
#define WRENLINK_PLATFORM_SHARED_MEMORY_H

#include <atomic>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/local_lock.h"
#include "platform/named_mutex.h"
#include "platform/os.h"

namespace wrenlink {

class SharedMemory {
   public:
    // The region of that name and size in bytes. Nothing is mapped yet. Whoever creates the region
    // fills it with the given byte before another process can see it.
    SharedMemory(std::string_view regionName, std::size_t size, std::byte fill);
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;
    ~SharedMemory();

    // The region's bytes, owned by this object; null when they cannot be mapped now, and then the
    // next call tries again. The first success takes the region's locks, later calls none. A child
    // made by fork maps the region anew: its parent's hold on it is not its own.
    std::byte* view() noexcept {
        std::byte* const mapped = view_.load(std::memory_order_acquire);
        return mapped != nullptr && mapping_.valid() ? mapped : firstView();
    }
    // Whether the last attempt of view() to map the region did not find it made already. Without
    // meaning before the first.
    bool created() const noexcept { return created_.load(std::memory_order_relaxed); }

   private:
    std::byte* firstView() noexcept;
    void mapRegion() noexcept;

    os::FileMapping mapping_;
    std::atomic<std::byte*> view_{nullptr};
    LocalLock localLock_;
    std::optional<NamedMutex> mutex_;  // under which all processes create this region
    std::atomic<bool> created_{false};
    const std::string kernelName_;
    const std::size_t size_;
    const std::byte fill_;
};

}  // namespace wrenlink

#endif
