// MGCMD exchanges and the state of the chip's XAP processor. Each operation is one exchange.
// Without a selected adapter the exchange fails with nothing stored, so that the status is 1 only
// when the thread has an earlier error.
#ifndef WRENLINK_WRENLINK_MGCMD_H
#define WRENLINK_WRENLINK_MGCMD_H

#include <cstdint>

#include "wrenlink/spifns.h"
#include "wrenlink/stream_data.h"

namespace wrenlink {

// The most words that one MGCMD command carries.
inline constexpr std::uint16_t kMaxMgcmdWords = 508;

// Prepares the adapter for MGCMD commands. Returns 1 on failure: 520 (firmware 1.0 to 1.4), or
// "Unable to initialise MGCMDs" appended.
int spi_sd_mgcmd_init(CUsbStreamData& stream, std::uint16_t first, std::uint16_t second);

// Sends `length` words, at any address, and overwrites them with the answer. Returns 1 and leaves
// the words on failure: 520, 1 "MGCMD too long", 1 "Invalid variable or value" (null words), "MGCMD
// cmd failed" appended, and with a nonzero flag 517 for the adapter's own failure report.
int spi_sd_mgcmd_cmd(CUsbStreamData& stream, std::uint16_t* words, std::uint16_t length,
                     std::uint32_t flag);

// Asks whether the XAP processor is stopped. SPIFNS_XAP_ERROR on failure, with 517 or the
// exchange's error stored.
spifns_xap_state spi_sd_marigold_xap_stopped(CUsbStreamData& stream);

}  // namespace wrenlink

#endif
