// Sequences of reads, writes and settings, as hosts submit them.
#ifndef WRENLINK_WRENLINK_SEQUENCE_H
#define WRENLINK_WRENLINK_SEQUENCE_H

#include <cstdint>

#include "wrenlink/spifns.h"
#include "wrenlink/stream_data.h"

namespace wrenlink {

// Carries out count actions in order; 0 and below means none. The array and the buffers it points
// to need no alignment. Reads and writes gather until a setting, or the end, sends them.
// Command-bit settings are kept for the reads and writes behind them. From firmware 1.9 on a read
// or a write whose command bits differ from the adapter's shared cache takes them along.
//
// The first failure ends it: what has gathered is dropped, what was sent stays done. Returns 1 with
// 265 "Invalid address" (the error address is it), 266 "Read or write too long", 520 (command bits
// on firmware 1.0 to 1.8), 1 "Invalid variable or value" (a null array, buffer, name or value), or
// what sending and setting stored. Throws std::bad_alloc.
int spi_sd_sequence(CUsbStreamData& stream, const SpiAction* actions, std::int32_t count);

}  // namespace wrenlink

#endif
