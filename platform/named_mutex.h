// A lock that threads and processes share by its name. Each user makes an object of its own: one
// object serves one thread at a time.
//
// A mutex that cannot be had is no error here: lock() tells, and its users go on without it.
#ifndef WRENLINK_PLATFORM_NAMED_MUTEX_H
#define WRENLINK_PLATFORM_NAMED_MUTEX_H

#include <cstdint>
#include <memory_resource>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/os.h"

namespace wrenlink {

// The kernel's name of the mutex "name": "kvs_mutex_" and the name, with each of . \ / " * replaced
// by a hyphen.
std::pmr::string mutexKernelName(
    std::string_view name, std::pmr::memory_resource* memory = std::pmr::new_delete_resource());

class NamedMutex {
   public:
    // Creates or opens the mutex of that name without holding it.
    explicit NamedMutex(std::string_view name);
    NamedMutex(const NamedMutex&) = delete;
    NamedMutex& operator=(const NamedMutex&) = delete;
    // Gives back every hold.
    ~NamedMutex();

    // Waits at most so many milliseconds, kInfinite without limit; at once when this object holds
    // the mutex already. True when it does afterwards. Each such lock() needs an unlock(). A mutex
    // whose holder ended without giving it back is acquired like any other.
    bool lock(std::uint32_t milliseconds = os::kInfinite) noexcept;
    // Gives back one hold; nothing when there is none.
    void unlock() noexcept;

   private:
    enum class Unlock { normal, forced };
    void unlock(Unlock how) noexcept;

    os::KernelMutex mutex_;
    std::uint32_t holds_ = 0;
};

// Holds a NamedMutex, if it can be had, from its construction to its destruction.
using NamedMutexGuard = std::lock_guard<NamedMutex>;

}  // namespace wrenlink

#endif
