// Batch commands: several reads, writes and command-bit settings in one exchange with the adapter.
//
// A batch command is a command frame whose entries (entries.h) stand back to back from offset 5 on,
// with a gap of two zero bytes before each but the first. Each read has a part in the reply: status
// (01 00 is success), echoed address and count, n words.
#ifndef WRENLINK_WRENLINK_BATCH_H
#define WRENLINK_WRENLINK_BATCH_H

#include <cstdint>
#include <span>

#include "wrenlink/spifns.h"
#include "wrenlink/stream_data.h"

namespace wrenlink {

// The highest request length and reply length of a batch command, and the size of its two buffers.
inline constexpr std::uint32_t kBatchBudget = 1016;
inline constexpr std::size_t kBatchBufferSize = 1024;

// What one entry of a batch command does.
struct Step {
    std::uint32_t type;     // SpiAction::Read, Write, or SetVar to set command bits
    std::uint16_t address;  // of the chip; for command bits 1 for writes, 0 for reads
    std::uint16_t count;    // of words, at most 505 to read or 504 to write; or the bits
    std::uint16_t* words;   // in the host's buffer, at any address
};

// Sends a list of steps in order, in as few batch commands as that permits, and
// delivers what the reads give. Returns 1 at the first failure: "Unable to send sequence" appended
// to the exchange's error, 517 "Read failed on USB-SPI", or 266 for a step that fits no batch
// command.
int StreamSequence(CUsbStreamData& stream, std::span<const Step> list);

// Sends one filled batch command, which holds these steps, and unpacks its reply.
int DoStreamSequence(CUsbStreamData& stream, std::span<const Step> batch, std::uint8_t* frame);

// Shows an entry of a batch command, or a read's part of a reply, as a line of debug text.
void PrintStreamDebug(CUsbStreamData& stream, const std::uint8_t* entry);

}  // namespace wrenlink

#endif
