// A module that carries the per-thread store as the library does, to be loaded into a test.
#include "tests/platform/store_module.h"

#include "platform/thread_local_slot.h"

namespace {

// The slot's values are counters of how often they were discarded.
void countDiscard(void* value) { ++*static_cast<StoreCounter*>(value); }

StoreCounter atLoad{0};
wrenlink::ThreadLocalSlot slot(countDiscard);
const bool setAtLoad = slot.set(&atLoad);

}  // namespace

extern "C" {
bool storeSet(StoreCounter* value) { return slot.set(value); }
StoreCounter* storeGet() { return static_cast<StoreCounter*>(slot.get()); }
bool storeWorkedAtLoad() { return setAtLoad && slot.get() == &atLoad; }
void storeThreadEnd() { wrenlink::ThreadLocalSlot::threadEnd(); }
}
