// The entries of batch commands. Their fields are 16 bits, big-endian:
//
//   entry             code   bytes 2-3      bytes 4-5  then        request bytes  reply bytes
//   read              0x0100 chip address   count n    -           6              6 + 2n
//   write             0x0200 chip address   count n    n words     6 + 2n         0
//   set command bits  0x0F00 1 for writes,  the bits   -           6              0
//                            0 for reads
//
// Each function reports the bytes that its entry takes in request and reply, and encodes it when
// there is a position to encode it at. They are inline because every record meets two of them.
#ifndef WRENLINK_WRENLINK_ENTRIES_H
#define WRENLINK_WRENLINK_ENTRIES_H

#include <cstdint>

#include "diag/result_sentry.h"
#include "quill/frame.h"
#include "wrenlink/words.h"

namespace wrenlink {

inline void BuildRead(std::uint8_t* position, std::uint16_t address, std::uint16_t count,
                      std::uint32_t& requestBytes, std::uint32_t& replyBytes) {
    const Trace trace;
    requestBytes = kEntryHeader;
    replyBytes = kEntryHeader + 2 * std::uint32_t{count};
    if (position == nullptr) return;
    putBig16(position, kReadWords);
    putBig16(position + 2, address);
    putBig16(position + 4, count);
}

inline void BuildWrite(std::uint8_t* position, std::uint16_t address, std::uint16_t count,
                       const std::uint16_t* words, std::uint32_t& requestBytes,
                       std::uint32_t& replyBytes) {
    const Trace trace;
    requestBytes = kEntryHeader + 2 * std::uint32_t{count};
    replyBytes = 0;
    if (position == nullptr) return;
    putBig16(position, kWriteWords);
    putBig16(position + 2, address);
    putBig16(position + 4, count);
    wordsToWire(position + kEntryHeader, words, count);
}

inline void BuildSetVar(std::uint8_t* position, bool forWrites, std::uint16_t bits,
                        std::uint32_t& requestBytes, std::uint32_t& replyBytes) {
    const Trace trace;
    requestBytes = kEntryHeader;
    replyBytes = 0;
    if (position == nullptr) return;
    putBig16(position, kSetCommandBits);
    putBig16(position + 2, forWrites ? 1 : 0);
    putBig16(position + 4, bits);
}

}  // namespace wrenlink

#endif
