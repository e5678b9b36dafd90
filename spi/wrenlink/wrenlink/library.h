// Everything of the library that lasts, in the order in which it is made at load; it is destroyed
// in the reverse order at unload.
#ifndef WRENLINK_WRENLINK_LIBRARY_H
#define WRENLINK_WRENLINK_LIBRARY_H

#include "platform/thread_local_slot.h"
#include "quill/adapter_layer.h"
#include "quill/debug_full.h"
#include "quill/last_error.h"
#include "wrenlink/stream_table.h"

namespace wrenlink {

// Closes the per-thread store's mutex. Destroying the last-error store opens it once more and
// closes it after itself.
struct ThreadStoreMutexCloser {
    ThreadStoreMutexCloser() = default;
    ThreadStoreMutexCloser(const ThreadStoreMutexCloser&) = delete;
    ThreadStoreMutexCloser& operator=(const ThreadStoreMutexCloser&) = delete;
    ~ThreadStoreMutexCloser() { closeThreadStoreMutex(); }
};

struct Library {
    DebugFullSwitch debugFull;
    LastErrorStore lastErrors;
    AdapterLayer adapterLayer;
    CUsbStreamTable streamTable;
    ThreadStoreMutexCloser threadStoreMutexCloser;
};

}  // namespace wrenlink

#endif
