// One exchange with an adapter's driver.
#ifndef WRENLINK_QUILL_DRIVER_EXCHANGE_H
#define WRENLINK_QUILL_DRIVER_EXCHANGE_H

#include <cstdint>

namespace wrenlink {

class AdapterSettings;

// Sends the command frame `request` to the adapter of that device path and places its reply from
// offset 5 of `replyBase` on; both may be one buffer. The frame's own lengths say how many bytes
// travel; its reserved byte is set to 0. A reply shorter than asked for is a success, and the bytes
// it does not have are left as they were.
//
// Waits for the adapter's turn without a limit (one exchange at a time, over all threads and
// processes), then at most 1000 ms for the reply and os::kCancelLimitMs until a driver has given a
// request without a reply back. The driver is opened and closed within the call, and nothing
// touches the buffers after it. What the exchange changes of the adapter's settings, if they are
// given, is recorded before the next exchange can begin.
//
// False on failure, with the operating system's text, ": " and ours stored: 515 "Unable to open USB
// driver", 516 "Failed to create event for driver IO", "Driver IO failed", "Driver IO timed out".
bool Quill_Command(std::uint8_t* request, std::uint8_t* replyBase, const char* devicePath,
                   AdapterSettings* settings = nullptr);

}  // namespace wrenlink

#endif
