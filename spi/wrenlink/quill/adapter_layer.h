// The start and end of the adapter layer, counted in streams. The first stream of the process finds
// the adapters and reads the map file; the last one drops what they gave.
#ifndef WRENLINK_QUILL_ADAPTER_LAYER_H
#define WRENLINK_QUILL_ADAPTER_LAYER_H

#include "platform/local_lock.h"

namespace wrenlink {

// The adapter-layer lock, which guards the count and the making and dropping of the adapter list.
// One exists while the library is loaded. It may be taken inside the stream registry's lock, never
// around it.
class AdapterLayer {
   public:
    AdapterLayer();
    AdapterLayer(const AdapterLayer&) = delete;
    AdapterLayer& operator=(const AdapterLayer&) = delete;
    ~AdapterLayer() = default;

    LocalLock& lock() { return lock_; }

   private:
    LocalLock lock_;
};

// The process's lock.
LocalLock& adapterLayerLock();

// Counts one more use and starts the layer with the first: exchanges with every adapter. False when
// this call started it and the map file has a syntax error: 514 "Mapping file ... syntax error on
// line: ...". The use is counted all the same. Out of memory it throws and nothing is counted.
bool Quill_Initialise();

// Ends one use, and the layer with the last.
void Quill_Finalise();

}  // namespace wrenlink

#endif
