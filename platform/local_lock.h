// A lock of this process, for any thread; re-entrant for the thread that holds it.
#ifndef WRENLINK_PLATFORM_LOCAL_LOCK_H
#define WRENLINK_PLATFORM_LOCAL_LOCK_H

#include <mutex>

#include "platform/os.h"

namespace wrenlink {

class LocalLock {
   public:
    // Waits while another thread holds the lock; each lock() needs an unlock().
    void lock() noexcept { mutex_.enter(); }
    void unlock() noexcept { mutex_.leave(); }

   private:
    os::LocalMutex mutex_;
};

// Holds a LocalLock from its construction to its destruction.
using LocalLockGuard = std::lock_guard<LocalLock>;

}  // namespace wrenlink

#endif
