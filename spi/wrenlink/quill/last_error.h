// The last error: per thread a code, an error address and a text. What detects a failure stores it;
// each layer that passes it on appends its own words, separated by ": ". A record is private to its
// thread, so no call here blocks another thread.
#ifndef WRENLINK_QUILL_LAST_ERROR_H
#define WRENLINK_QUILL_LAST_ERROR_H

#include "platform/thread_local_slot.h"

namespace wrenlink {

// The records of all threads. One exists while the library is loaded; its end frees the records.
class LastErrorStore {
   public:
    LastErrorStore();
    LastErrorStore(const LastErrorStore&) = delete;
    LastErrorStore& operator=(const LastErrorStore&) = delete;
    ~LastErrorStore() = default;

    ThreadLocalSlot& slot() { return slot_; }

   private:
    ThreadLocalSlot slot_;
};

// Stores a new record for the calling thread, its text cut to 1023 characters. Returns 1 for a
// nonzero code, else 0. Throws std::bad_alloc when the thread's first record cannot be made.
int Quill_SetLastError(int code, unsigned int address, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Returns the calling thread's code, 0 when it has no record, and writes the error address and the
// text through pointers that are not null. The text changes with the next store or append on this
// thread and ends with a clear.
unsigned int Quill_GetLastError(unsigned int* address, const char** text);

// Adds ": " and text behind the stored text; null and "" add nothing. Returns 1 when the stored
// code is nonzero, else 0. Throws as Quill_SetLastError.
int Quill_AppendToLastError(const char* text);

// Discards the calling thread's record.
void Quill_ClearLastError();

}  // namespace wrenlink

#endif
