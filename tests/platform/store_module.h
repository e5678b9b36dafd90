// What a store module offers to the test that loads it.
#ifndef WRENLINK_TESTS_PLATFORM_STORE_MODULE_H
#define WRENLINK_TESTS_PLATFORM_STORE_MODULE_H

#include <atomic>

using StoreCounter = std::atomic<int>;

extern "C" {
// Gives the calling thread a value in the module's slot; it is counted up when it is discarded.
[[gnu::visibility("default")]] bool storeSet(StoreCounter* value);
[[gnu::visibility("default")]] StoreCounter* storeGet();
// Whether the slot could be used while the module was being loaded, by the loading thread.
[[gnu::visibility("default")]] bool storeWorkedAtLoad();
[[gnu::visibility("default")]] void storeThreadEnd();
}

#endif
