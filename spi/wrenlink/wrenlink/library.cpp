// The library's load and unload. The one object here is made before any export can run and
// destroyed after the last.
#include "wrenlink/library.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

wrenlink::Library library;

}  // namespace

#ifdef _WIN32
// Thread notifications are not used: nothing runs when a host's thread ends.
BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
    return TRUE;
}
#endif
