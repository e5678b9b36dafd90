// What travels between a host's driver and the adapter: frame layout, command codes, and the check
// that the firmware makes of a frame before it carries anything out. Pure functions over bytes.
#ifndef WRENLINK_SIM_MODEL_WIRE_H
#define WRENLINK_SIM_MODEL_WIRE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quillsim {

using Bytes = std::span<const std::uint8_t>;

// The one control code that the adapter's driver serves.
inline constexpr std::uint32_t kControlCode = 0x220000;

// Frame offsets. The two lengths are little-endian, everything from the code on is big-endian.
inline constexpr std::size_t kRequestLengthAt = 0;  // bytes from offset 4 to the end
inline constexpr std::size_t kReplyLengthAt = 2;    // bytes that the adapter answers
inline constexpr std::size_t kReservedAt = 4;
inline constexpr std::size_t kCodeAt = 5;  // also the first entry of a batch
inline constexpr std::size_t kPayloadAt = 7;

inline constexpr std::size_t wordBytes(std::size_t words) { return 2 * words; }

// The firmware's buffers: a batch, request and reply alike, and the words of one MGCMD command.
inline constexpr std::size_t kBatchLimit = 1016;
inline constexpr std::size_t kMgcmdWordLimit = 508;
inline constexpr std::size_t kFrameLimit = kPayloadAt + 2 + wordBytes(kMgcmdWordLimit);
inline constexpr std::size_t kReplyLimit = 4 + wordBytes(kMgcmdWordLimit);

enum class Code : std::uint16_t {
    none = 0,
    read = 0x0100,
    write = 0x0200,
    setDelay = 0x0300,
    xapState = 0x0400,
    getDelay = 0x0500,
    enterDfu = 0x0600,
    adapterId = 0x0700,
    firmwareVersion = 0x0800,
    setMode = 0x0900,
    selectDevice = 0x0E00,
    commandBits = 0x0F00,
    mgcmdInit = 0x4000,
    mgcmd = 0x4100,
};

// How the lengths of a command follow from its code.
enum class Shape : std::uint8_t {
    fixed,   // both lengths are the table's
    entry,   // an entry of a batch
    counted  // a word count, then so many words, in request and reply
};

struct Command {
    Code code;
    std::string_view name;
    Shape shape;
    std::uint16_t requestLength;  // fixed shape only
    std::uint16_t replyLength;    // fixed shape only
    std::uint16_t highest;        // greatest first payload word that is accepted
};

// The command of a code; null when the firmware has none.
const Command* findCommand(Code code);

std::uint16_t loadLittle(Bytes bytes, std::size_t at);
std::uint16_t loadBig(Bytes bytes, std::size_t at);
void storeBig(std::span<std::uint8_t> bytes, std::size_t at, std::uint16_t value);

// The code of a frame; none when the frame is too short to have one.
Code codeOf(Bytes frame);

// One entry of a batch.
struct Entry {
    Code code = Code::none;
    std::uint16_t first = 0;   // address, or the selector of command bits
    std::uint16_t second = 0;  // word count, or the bits
    Bytes words;               // of a write
};

// Why a request is refused.
enum class Verdict : std::uint8_t {
    good,
    controlCode,     // not the driver's control code
    frameTooShort,   // no room for header and code
    frameLength,     // the frame is not as long as its request length says
    reservedByte,    // offset 4 is not zero
    unknownCode,     // no such command
    requestLength,   // the request length does not fit the command
    replyLength,     // the reply length does not fit the command
    entryTruncated,  // a batch ends inside an entry or after a gap
    entryCode,       // a code inside a batch that is no entry's
    overBudget,      // longer than the firmware's buffers
    value,           // an argument that the command does not know
    firmware,        // the command is newer than the firmware
};

// The reason as one word, for the request log.
std::string_view verdictName(Verdict verdict);

// Walks the entries of a batch, from the first entry's code on. The bytes stay the caller's.
class BatchWalk {
   public:
    explicit BatchWalk(Bytes entries) : rest_(entries) {}

    // Fetches the next entry; false at the end and at a malformed entry.
    bool next(Entry& entry);
    // Good at the end, otherwise what is wrong with the entry at which the walk stopped.
    Verdict verdict() const { return verdict_; }
    // Whether a gap between two entries so far held anything but zeros.
    bool gapUsed() const { return gapUsed_; }

   private:
    bool skipGap();
    bool stop(Verdict verdict);

    Bytes rest_;
    bool atFirst_ = true;
    bool gapUsed_ = false;
    Verdict verdict_ = Verdict::good;
};

// Whether a firmware version (major in the high byte) has command bits: 1.9 and later.
bool hasCommandBits(std::uint16_t firmware);
// Whether it has MGCMD: all but 1.0 to 1.4.
bool hasMgcmd(std::uint16_t firmware);

// Checks a whole frame. A good one has every field in place that carrying it out reads.
Verdict judge(Bytes frame, std::uint16_t firmware);

}  // namespace quillsim

#endif
