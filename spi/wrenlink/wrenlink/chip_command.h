// Named commands: "DFU" and "SPISLOWER".
#ifndef WRENLINK_WRENLINK_CHIP_COMMAND_H
#define WRENLINK_WRENLINK_CHIP_COMMAND_H

#include "wrenlink/stream_data.h"

namespace wrenlink {

// Carries out the command of that name, in any case; any other name, and null, does nothing. Always
// returns null. A failure is stored with "Unable to enable DFU mode" or "Unable to slow down SPI"
// appended. DFU exchanges once, SPISLOWER at most twice.
const char* spi_sd_command(CUsbStreamData& stream, const char* name);

}  // namespace wrenlink

#endif
