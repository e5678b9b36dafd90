#include "quill/adapter_layer.h"

#include <cstdint>

#include "diag/result_sentry.h"
#include "quill/adapter_list.h"
#include "quill/last_error.h"
#include "quill/map_file.h"

namespace wrenlink {
namespace {

AdapterLayer* theLayer = nullptr;
std::int32_t uses = 0;

bool readMapFile() {
    const MapFile map = openMapFile();
    if (map.file == nullptr) return true;
    const int faultyLine = applyMapFile(map.file.get(), *selectionTable());
    if (faultyLine == 0) return true;
    Quill_SetLastError(514, 0, "Mapping file %s syntax error on line: %d\n", map.name.c_str(),
                       faultyLine);
    return false;
}

void endUse() {
    if (--uses == 0) dropAdapters();
}

}  // namespace

AdapterLayer::AdapterLayer() { theLayer = this; }

LocalLock& adapterLayerLock() { return theLayer->lock(); }

bool Quill_Initialise() {
    bool result = true;
    const ResultTrace<bool> trace(result);
    const LocalLockGuard guard(adapterLayerLock());
    if (uses++ != 0) return result;
    try {
        Quill_Enumerate();
        return result = readMapFile();
    } catch (...) {
        endUse();
        throw;
    }
}

void Quill_Finalise() {
    const Trace trace;
    const LocalLockGuard guard(adapterLayerLock());
    endUse();
}

}  // namespace wrenlink
