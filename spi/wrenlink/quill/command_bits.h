// The adapter's command bits as all its users know them: what it was last given, for reads and for
// writes. The bits themselves travel as entries of batch commands.
#ifndef WRENLINK_QUILL_COMMAND_BITS_H
#define WRENLINK_QUILL_COMMAND_BITS_H

#include <cstdint>

#include "diag/result_sentry.h"
#include "quill/adapter_caches.h"
#include "quill/quill_stream.h"

namespace wrenlink {

// Copies the cached bits, for writes or for reads, to *bits; they may be 0xFFFF, unknown. False
// when there is no cache: no adapter selected, region unavailable, null pointer.
inline bool Quill_Stream_GetCmdBitsCache(QuillStream* stream, std::uint16_t* bits, bool forWrites) {
    const Trace trace;
    auto* cache = bits == nullptr ? nullptr : cacheIn<CmdBitsCache>(stream->cmdBitsRegion);
    if (isDebugFullNoticed())
        Quill_Stream_Debug_Full(stream, cache == nullptr ? "There is not a cached cmdbits"
                                                         : "There is a cached cmdbits");
    if (cache == nullptr) return false;
    *bits = loadField(cache->half[forWrites ? 1 : 0]);
    return true;
}

// Records the bits that the adapter now has; nothing when there is no cache.
void Quill_Stream_SetCmdBitsCache(QuillStream* stream, std::uint16_t bits, bool forWrites);

}  // namespace wrenlink

#endif
