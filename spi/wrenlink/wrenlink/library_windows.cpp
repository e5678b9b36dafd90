// What Windows wants of a library that it loads.
#include <windows.h>

namespace __gnu_cxx {
// Of the compiler's runtime, which declares it nowhere.
void __freeres();
}  // namespace __gnu_cxx

namespace {

// The DLL has the runtime for itself, and in it 72 KB for exceptions that are thrown without
// memory. They would stay behind at each unload. Made before all else, so that it ends last and
// nothing is thrown after it.
struct RuntimeMemory {
    RuntimeMemory() = default;
    RuntimeMemory(const RuntimeMemory&) = delete;
    RuntimeMemory& operator=(const RuntimeMemory&) = delete;
    ~RuntimeMemory() { __gnu_cxx::__freeres(); }
};
[[gnu::init_priority(101)]] RuntimeMemory runtimeMemory;

}  // namespace

// Nothing of the library runs when a host's thread ends. The system refuses this, harmlessly, when
// the compiler's runtime has thread-local data of its own.
BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
    return TRUE;
}
