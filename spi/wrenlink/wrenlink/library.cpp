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
// Nothing of the library runs when a host's thread ends. The call is refused where the compiler's
// runtime wants the notifications for itself.
BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
    return TRUE;
}
#endif
