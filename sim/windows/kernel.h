// The kernel's interface, with guards over its locks and objects in its pool.
#ifndef WRENLINK_SIM_WINDOWS_KERNEL_H
#define WRENLINK_SIM_WINDOWS_KERNEL_H

#include <ntddk.h>

#include <new>
#include <utility>

namespace quillsim {

inline constexpr ULONG kPoolTag = 0x6C697551;  // "Quil"

// Makes an object in memory that is never paged out; null when there is none. The caller destroys
// it with destroyInPool.
template <typename Type, typename... Arguments>
Type* makeInPool(Arguments&&... arguments) {
    void* const memory = ::ExAllocatePoolWithTag(NonPagedPool, sizeof(Type), kPoolTag);
    return memory == nullptr ? nullptr : new (memory) Type(std::forward<Arguments>(arguments)...);
}

template <typename Type>
void destroyInPool(Type* object) {
    if (object == nullptr) return;
    object->~Type();
    ::ExFreePoolWithTag(object, kPoolTag);
}

// A lock for passive level, at which its holder stays: device interfaces can be switched under it,
// which the kernel's own mutexes forbid by raising the level.
class PassiveLock {
   public:
    PassiveLock() { ::KeInitializeEvent(&free_, SynchronizationEvent, TRUE); }
    PassiveLock(const PassiveLock&) = delete;
    PassiveLock& operator=(const PassiveLock&) = delete;

    void enter() { ::KeWaitForSingleObject(&free_, Executive, KernelMode, FALSE, nullptr); }
    void leave() { ::KeSetEvent(&free_, IO_NO_INCREMENT, FALSE); }

   private:
    KEVENT free_;
};

class PassiveGuard {
   public:
    explicit PassiveGuard(PassiveLock& lock) : lock_(lock) { lock_.enter(); }
    PassiveGuard(const PassiveGuard&) = delete;
    PassiveGuard& operator=(const PassiveGuard&) = delete;
    ~PassiveGuard() { lock_.leave(); }

   private:
    PassiveLock& lock_;
};

class SpinGuard {
   public:
    explicit SpinGuard(KSPIN_LOCK& lock) : lock_(lock) { KeAcquireSpinLock(&lock_, &before_); }
    SpinGuard(const SpinGuard&) = delete;
    SpinGuard& operator=(const SpinGuard&) = delete;
    ~SpinGuard() { KeReleaseSpinLock(&lock_, before_); }

   private:
    KSPIN_LOCK& lock_;
    KIRQL before_ = PASSIVE_LEVEL;
};

}  // namespace quillsim

#endif
