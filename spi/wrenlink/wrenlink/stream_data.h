// One open stream: what the registry counts and hands out.
#ifndef WRENLINK_WRENLINK_STREAM_DATA_H
#define WRENLINK_WRENLINK_STREAM_DATA_H

#include <cstdint>

#include "quill/quill_stream.h"
#include "wrenlink/spifns.h"

namespace wrenlink {

// The stream owns its QuillStream. The registry alone touches the reference count, under its lock.
class CUsbStreamData {
   public:
    // Makes the stream's QuillStream, which starts the adapter layer with the first; throws
    // std::bad_alloc.
    CUsbStreamData();
    CUsbStreamData(const CUsbStreamData&) = delete;
    CUsbStreamData& operator=(const CUsbStreamData&) = delete;
    ~CUsbStreamData();

    // Whether starting the adapter layer for this stream found a faulty map file.
    bool hasFailedMapFileInitialisation() const;

    QuillStream* quill() const { return quill_; }
    std::uint32_t id() const { return id_; }

   private:
    friend class CUsbStreamTable;

    std::uint32_t references_ = 1;         // passes to the registry when the stream is stored
    std::uint32_t id_ = SPIFNS_NO_STREAM;  // the registry assigns it
    QuillStream* quill_ = nullptr;
};

}  // namespace wrenlink

#endif
