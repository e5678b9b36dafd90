// One pointer for each thread. Destroying a slot hands every value that a thread still has to the
// slot's cleanup function, also those of threads that have ended: nothing runs when a thread ends,
// unless a module calls threadEnd().
//
// All modules of a process that carry this code keep one registry of the threads. Its mutex, the
// store's mutex, guards the bookkeeping and is never held while a cleanup function runs.
#ifndef WRENLINK_PLATFORM_THREAD_LOCAL_SLOT_H
#define WRENLINK_PLATFORM_THREAD_LOCAL_SLOT_H

#include "platform/os.h"

namespace wrenlink {

struct ValueNode;

// What every module of the process knows of a slot.
struct SlotRecord {
    os::ThreadIndex index;  // under it each thread keeps its node
    void (*cleanup)(void* value);
    ValueNode* nodes;
};

class ThreadLocalSlot {
   public:
    // Called with a value that is not null; may be null. What it throws is ignored.
    using Cleanup = void (*)(void* value);

    explicit ThreadLocalSlot(Cleanup cleanup) noexcept;
    ThreadLocalSlot(const ThreadLocalSlot&) = delete;
    ThreadLocalSlot& operator=(const ThreadLocalSlot&) = delete;
    // No thread may use the slot any more. The module's last slot also closes the store's mutex.
    ~ThreadLocalSlot();

    // The calling thread's value; null when it has none. Takes no lock.
    void* get() const noexcept;
    // Gives the calling thread this value; a former one is dropped without the cleanup function.
    // False when there is no memory or no thread index left: the thread's value is as before then.
    bool set(void* value) noexcept;

    // Discards the calling thread's values in the slots of all modules.
    static void threadEnd() noexcept;

   private:
    ValueNode* threadNode() const noexcept;

    SlotRecord record_;
    bool usable_;  // has its index
};

// Closes the store's mutex of this module, for the library's unload. Whatever still needs it after
// that opens it again. No other thread may be using a slot.
void closeThreadStoreMutex() noexcept;

}  // namespace wrenlink

#endif
