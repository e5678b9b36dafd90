// The adapter's interface to the chip: SPI or JTAG. Only the adapter keeps it.
#ifndef WRENLINK_QUILL_INTERFACE_MODE_H
#define WRENLINK_QUILL_INTERFACE_MODE_H

namespace wrenlink {

struct QuillStream;

// Switches to JTAG for "JTAG", in any case, and to SPI for any other text. Marks the adapter's
// shared caches unknown first, so that they are sent again even when the exchange fails. Returns 1
// on failure: 260 (a cache is unavailable, also with no adapter selected), or the exchange's error.
int Quill_Stream_SetMode(QuillStream* stream, const char* mode);

}  // namespace wrenlink

#endif
