// The SPI delay and the clock that it makes. A delay has 16 bits; 0 is the fastest and every step
// slows the clock. Clocks are in kHz. The delay that an adapter has is one of its AdapterSettings,
// which all processes share.
#ifndef WRENLINK_QUILL_SPI_CLOCK_H
#define WRENLINK_QUILL_SPI_CLOCK_H

#include <cstdint>

namespace wrenlink {

struct QuillStream;

// A delay from here on makes a clock of about 19 kHz or less, too slow for most chips.
inline constexpr std::uint16_t kTooSlowDelay = 414;

// The clock of a delay: 4000 at 0, else 1000000 / (126 x delay + 434).
double Quill_GetClockFromDelays(std::uint16_t delay);

// Sets the delay for a requested clock within the stream's SPIMAXCLOCK. Results as the next.
int setClock(QuillStream* stream, double clock);

// Sets the adapter's delay, unless its cache says that it has it. Returns 1 on failure: 258 (no
// adapter selected), 260 (cache unavailable), or the exchange's error with "Unable to set delays"
// appended.
int Quill_Stream_SetDelays(QuillStream* stream, std::uint16_t delay);

// Gets the adapter's delay from its cache, or by an exchange when that is unknown. *delay, unless
// null, is written on success only. Returns 1 on failure: 258, 260, or "Unable to get delays"
// appended.
int Quill_Stream_GetDelays(QuillStream* stream, std::uint16_t* delay);

}  // namespace wrenlink

#endif
