// What a store module offers to the test that loads it.
#ifndef WRENLINK_TESTS_PLATFORM_STORE_MODULE_H
#define WRENLINK_TESTS_PLATFORM_STORE_MODULE_H

#include <atomic>

#include "tests/support/loaded_module.h"

using StoreCounter = std::atomic<int>;

extern "C" {
// Gives the calling thread a value in the module's slot; it is counted up when it is discarded.
[[gnu::visibility("default")]] bool storeSet(StoreCounter* value);
[[gnu::visibility("default")]] StoreCounter* storeGet();
// Whether the slot could be used while the module was being loaded, by the loading thread.
[[gnu::visibility("default")]] bool storeWorkedAtLoad();
[[gnu::visibility("default")]] void storeThreadEnd();
}

namespace wrenlink::test {

// A store module, loaded.
class StoreModule : public LoadedModule {
   public:
    using LoadedModule::LoadedModule;

    decltype(&storeSet) const set = find<decltype(storeSet)>("storeSet");
    decltype(&storeGet) const get = find<decltype(storeGet)>("storeGet");
    decltype(&storeWorkedAtLoad) const workedAtLoad =
        find<decltype(storeWorkedAtLoad)>("storeWorkedAtLoad");
    decltype(&storeThreadEnd) const threadEnd = find<decltype(storeThreadEnd)>("storeThreadEnd");
};

}  // namespace wrenlink::test

#endif
