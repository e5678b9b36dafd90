// A lock of this process, for any thread; re-entrant for the thread that holds it.
#ifndef WRENLINK_PLATFORM_LOCAL_LOCK_H
#define WRENLINK_PLATFORM_LOCAL_LOCK_H

#include <mutex>
#include <new>

#include "platform/os.h"

namespace wrenlink {

class LocalLock {
   public:
    // Throws std::bad_alloc when there is no memory.
    LocalLock() : mutex_(os::makeLocalMutex()) {
        if (mutex_ == nullptr) throw std::bad_alloc();
    }
    LocalLock(const LocalLock&) = delete;
    LocalLock& operator=(const LocalLock&) = delete;
    // No thread may hold the lock.
    ~LocalLock() { os::destroyLocalMutex(mutex_); }

    // Waits while another thread holds the lock; each lock() needs an unlock().
    void lock() noexcept { os::enterLocalMutex(mutex_); }
    void unlock() noexcept { os::leaveLocalMutex(mutex_); }

   private:
    os::LocalMutex* const mutex_;
};

// Holds a LocalLock from its construction to its destruction.
using LocalLockGuard = std::lock_guard<LocalLock>;

}  // namespace wrenlink

#endif
