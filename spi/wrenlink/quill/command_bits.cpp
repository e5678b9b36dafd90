#include "quill/command_bits.h"

namespace wrenlink {

void Quill_Stream_SetCmdBitsCache(QuillStream* stream, std::uint16_t bits, bool forWrites) {
    const Trace trace;
    if (auto* cache = cacheIn<CmdBitsCache>(stream->cmdBitsRegion))
        storeField(cache->half[forWrites ? 1 : 0], bits);
}

}  // namespace wrenlink
