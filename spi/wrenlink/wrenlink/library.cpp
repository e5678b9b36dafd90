// The library's load and unload. What is here is made before any export can run and destroyed when
// no more can.
#include "wrenlink/library.h"

#include "wrenlink/call_gate.h"

#ifdef _WIN32
#include <windows.h>

namespace __gnu_cxx {
// Of the compiler's runtime, which declares it nowhere.
void __freeres();
}  // namespace __gnu_cxx
#endif

namespace {

#ifdef _WIN32
// The DLL has the runtime for itself, and in it 72 KB for exceptions that are thrown without
// memory. They would stay behind at each unload. Nothing is thrown after this.
struct RuntimeMemory {
    RuntimeMemory() = default;
    RuntimeMemory(const RuntimeMemory&) = delete;
    RuntimeMemory& operator=(const RuntimeMemory&) = delete;
    ~RuntimeMemory() { __gnu_cxx::__freeres(); }
};
RuntimeMemory runtimeMemory;
#endif

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

#ifdef _WIN32
// Nothing of the library runs when a host's thread ends. The call is refused where the compiler's
// runtime wants the notifications for itself.
BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
    return TRUE;
}
#endif
