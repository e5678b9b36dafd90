#include "wrenlink/stream_data.h"

#include "diag/result_sentry.h"

namespace wrenlink {

CUsbStreamData::CUsbStreamData() {
    static constexpr char kName[] = "CUsbStreamData::CUsbStreamData";
    if (isTraced) messageHandler(kName, true);
    const Trace trace(kName);
    quill_ = Quill_Stream_Initialise();
}

CUsbStreamData::~CUsbStreamData() {
    const Trace trace("CUsbStreamData::~CUsbStreamData");
    Quill_Stream_Finalise(quill_);
}

bool CUsbStreamData::hasFailedMapFileInitialisation() const {
    bool result = false;
    const ResultTrace<bool> trace(result, "CUsbStreamData::hasFailedMapFileInitialisation");
    return result = quill_->mapFileFailed;
}

}  // namespace wrenlink
