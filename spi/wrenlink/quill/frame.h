// The command frame on its way to the adapter's driver and back. Pure, no I/O.
//
//   offset 0  request length L: the bytes from offset 4 to the end      16 bits, little-endian
//   offset 2  reply length R: the reply bytes that are wanted            16 bits, little-endian
//   offset 4  reserved, 0
//   offset 5  command code, or the first entry of a batch command        16 bits, big-endian
//   offset 7  payload                                                    16-bit fields, big-endian
//
// The driver takes L + 4 bytes from offset 0. A reply of R bytes is placed from offset 5 on: a
// status of 2 bytes, then 16-bit big-endian fields. All of this is the wire format of the adapter.
#ifndef WRENLINK_QUILL_FRAME_H
#define WRENLINK_QUILL_FRAME_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace wrenlink {

inline constexpr std::size_t kRequestLengthOffset = 0;
inline constexpr std::size_t kReplyLengthOffset = 2;
inline constexpr std::size_t kReservedOffset = 4;
inline constexpr std::size_t kCodeOffset = 5;
inline constexpr std::size_t kPayloadOffset = 7;

// L leaves out the four bytes of the two lengths.
inline constexpr std::size_t kLengthBytes = 4;
// L of a command without payload: the reserved byte and the code.
inline constexpr std::uint32_t kBareRequestLength = 3;

enum CommandCode : std::uint16_t {
    kReadWords = 0x0100,        // batch entry
    kReadWordsFailed = 0x0101,  // reply status only
    kWriteWords = 0x0200,       // batch entry
    kSetDelay = 0x0300,
    kQueryXapStopped = 0x0400,
    kGetDelay = 0x0500,
    kEnterDfu = 0x0600,
    kGetAdapterId = 0x0700,
    kGetFirmwareVersion = 0x0800,
    kSetInterfaceMode = 0x0900,
    kSelectMuxDevice = 0x0E00,
    kSetCommandBits = 0x0F00,  // batch entry
    kInitialiseMgcmd = 0x4000,
    kMgcmd = 0x4100,
    kMgcmdFailed = 0x4101,  // reply status only
};

// The entries of a batch command: a code and two fields, for a write n words, and a gap before the
// next entry.
inline constexpr std::uint32_t kEntryHeader = 6;
inline constexpr std::uint32_t kEntryGap = 2;

inline void putBig16(std::uint8_t* bytes, std::uint16_t value) {
    bytes[0] = static_cast<std::uint8_t>(value >> 8);
    bytes[1] = static_cast<std::uint8_t>(value);
}

inline std::uint16_t big16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
}

inline void putLittle16(std::uint8_t* bytes, std::uint16_t value) {
    bytes[0] = static_cast<std::uint8_t>(value);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

inline std::uint16_t little16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[1] << 8 | bytes[0]);
}

inline const std::uint8_t* nextEntry(const std::uint8_t* entry) {
    const std::size_t words = big16(entry) == kWriteWords ? big16(entry + 4) : 0;
    return entry + kEntryHeader + 2 * words + kEntryGap;
}

// The buffer of a single command, which also receives its reply.
class CommandFrame {
   public:
    // Large enough for the largest command: 9 bytes and 508 words.
    static constexpr std::size_t kSize = 1040;

    std::uint8_t* bytes() { return bytes_.data(); }
    // The payload fields, counted from 0.
    void setField(std::size_t index, std::uint16_t value) { putBig16(field(index), value); }
    // The reply's status, and the fields behind it, counted from 0.
    std::uint16_t replyStatus() const { return big16(&bytes_[kCodeOffset]); }
    std::uint16_t replyField(std::size_t index) const {
        return big16(&bytes_[kPayloadOffset + 2 * index]);
    }

   private:
    std::uint8_t* field(std::size_t index) { return &bytes_[kPayloadOffset + 2 * index]; }

    std::array<std::uint8_t, kSize> bytes_{};
};

}  // namespace wrenlink

#endif
