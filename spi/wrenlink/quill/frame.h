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
#include <initializer_list>

namespace wrenlink {

inline constexpr std::size_t kRequestLengthOffset = 0;
inline constexpr std::size_t kReplyLengthOffset = 2;
inline constexpr std::size_t kReservedOffset = 4;
inline constexpr std::size_t kCodeOffset = 5;
inline constexpr std::size_t kPayloadOffset = 7;

// L leaves out the four bytes of the two lengths.
inline constexpr std::size_t kLengthBytes = 4;

// A command that travels alone: its code, and the bytes of its reply.
struct SingleCommand {
    std::uint16_t code;
    std::uint16_t replyBytes;
};

inline constexpr SingleCommand kSetDelay = {0x0300, 0};
inline constexpr SingleCommand kQueryXapStopped = {0x0400, 4};
inline constexpr SingleCommand kGetDelay = {0x0500, 4};
inline constexpr SingleCommand kEnterDfu = {0x0600, 0};
inline constexpr SingleCommand kGetAdapterId = {0x0700, 6};
inline constexpr SingleCommand kGetFirmwareVersion = {0x0800, 4};
inline constexpr SingleCommand kSetInterfaceMode = {0x0900, 0};
inline constexpr SingleCommand kSelectMuxDevice = {0x0E00, 0};
inline constexpr SingleCommand kInitialiseMgcmd = {0x4000, 0};
inline constexpr SingleCommand kMgcmd = {0x4100, 4};  // and the words

// The codes of a batch command's entries.
enum EntryCode : std::uint16_t {
    kReadWords = 0x0100,
    kWriteWords = 0x0200,
    kSetCommandBits = 0x0F00,
};

// Statuses of replies that report a failure.
inline constexpr std::uint16_t kReadWordsFailed = 0x0101;
inline constexpr std::uint16_t kMgcmdFailed = 0x4101;

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

// A single command, in a buffer that also receives its reply.
class CommandFrame {
   public:
    // Large enough for the largest command: 9 bytes and 508 words.
    static constexpr std::size_t kSize = 1040;

    // The command with its payload fields.
    explicit CommandFrame(const SingleCommand& command,
                          std::initializer_list<std::uint16_t> fields = {}) {
        putBig16(&bytes_[kCodeOffset], command.code);
        lengthen(kPayloadOffset - kLengthBytes, command.replyBytes);
        std::uint8_t* field = &bytes_[kPayloadOffset];
        for (const std::uint16_t value : fields) {
            putBig16(field, value);
            field += 2;
        }
        lengthen(2 * fields.size(), 0);
    }

    // Makes room for words behind the payload, and at the same place for those of the reply.
    std::uint8_t* addWords(std::size_t count) {
        std::uint8_t* const words = &bytes_[kLengthBytes + little16(&bytes_[kRequestLengthOffset])];
        lengthen(2 * count, 2 * count);
        return words;
    }

    std::uint8_t* bytes() { return bytes_.data(); }
    // The reply's status, and the fields behind it, counted from 0.
    std::uint16_t replyStatus() const { return big16(&bytes_[kCodeOffset]); }
    std::uint16_t replyField(std::size_t index) const {
        return big16(&bytes_[kPayloadOffset + 2 * index]);
    }

   private:
    void lengthen(std::size_t request, std::size_t reply) {
        const auto add = [this](std::size_t offset, std::size_t bytes) {
            putLittle16(&bytes_[offset],
                        static_cast<std::uint16_t>(little16(&bytes_[offset]) + bytes));
        };
        add(kRequestLengthOffset, request);
        add(kReplyLengthOffset, reply);
    }

    std::array<std::uint8_t, kSize> bytes_{};
};

}  // namespace wrenlink

#endif
