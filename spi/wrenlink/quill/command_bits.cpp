#include "quill/command_bits.h"

#include "diag/result_sentry.h"
#include "quill/adapter_caches.h"
#include "quill/quill_stream.h"

namespace wrenlink {

bool Quill_Stream_GetCmdBitsCache(QuillStream* stream, std::uint16_t* bits, bool forWrites) {
    const Trace trace;
    auto* cache = bits == nullptr ? nullptr : cacheIn<CmdBitsCache>(stream->cmdBitsRegion);
    if (cache == nullptr) {
        Quill_Stream_Debug_Full(stream, "There is not a cached cmdbits");
        return false;
    }
    Quill_Stream_Debug_Full(stream, "There is a cached cmdbits");
    *bits = loadField(cache->half[forWrites ? 1 : 0]);
    return true;
}

void Quill_Stream_SetCmdBitsCache(QuillStream* stream, std::uint16_t bits, bool forWrites) {
    const Trace trace;
    if (auto* cache = cacheIn<CmdBitsCache>(stream->cmdBitsRegion))
        storeField(cache->half[forWrites ? 1 : 0], bits);
}

}  // namespace wrenlink
