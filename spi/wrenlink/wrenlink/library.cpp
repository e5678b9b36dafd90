// The library's load and unload. What is here is made before any export can run and destroyed when
// no more can.
#include "wrenlink/library.h"

#include "wrenlink/call_gate.h"

namespace {

// Destroyed as a whole or, when a call is running, not at all: the process is ending then.
union LoadedLibrary {
    LoadedLibrary() : library() {}
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    ~LoadedLibrary() {
        if (wrenlink::callGate.shut()) library.~Library();
    }

    wrenlink::Library library;
};
LoadedLibrary loadedLibrary;

}  // namespace
