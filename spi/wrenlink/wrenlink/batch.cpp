#include "wrenlink/batch.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "diag/result_sentry.h"
#include "quill/frame.h"
#include "quill/last_error.h"
#include "quill/stream_command.h"
#include "wrenlink/entries.h"
#include "wrenlink/words.h"

namespace wrenlink {
namespace {

constexpr std::uint32_t kShownWords = 3;

struct EntrySize {
    std::uint32_t requestBytes;
    std::uint32_t replyBytes;
};

// Measures a step's entry, and encodes it when there is a position.
void build(std::uint8_t* position, const Step& step, EntrySize& size) {
    if (step.type == SpiAction::Read)
        BuildRead(position, step.address, step.count, size.requestBytes, size.replyBytes);
    else if (step.type == SpiAction::Write)
        BuildWrite(position, step.address, step.count, step.words, size.requestBytes,
                   size.replyBytes);
    else
        BuildSetVar(position, step.address != 0, step.count, size.requestBytes, size.replyBytes);
}

// A batch command while it fills.
class BatchFrame {
   public:
    // The command with the entries so far.
    std::uint8_t* bytes() {
        putLittle16(&bytes_[kRequestLengthOffset], static_cast<std::uint16_t>(requestLength_));
        putLittle16(&bytes_[kReplyLengthOffset], static_cast<std::uint16_t>(replyLength_));
        return bytes_.data();
    }
    bool isEmpty() const { return requestLength_ == kEmptyLength; }

    void clear() {
        requestLength_ = kEmptyLength;
        replyLength_ = 0;
    }

    // Appends a step's entry; false when the budget does not permit it.
    bool append(const Step& step) {
        EntrySize size{};
        build(nullptr, step, size);
        const std::uint32_t gap = isEmpty() ? 0 : kEntryGap;
        if (requestLength_ + gap + size.requestBytes > kBatchBudget ||
            replyLength_ + size.replyBytes > kBatchBudget)
            return false;
        // The length counts from offset 4, so it is also the distance of the end from there.
        std::uint8_t* end = &bytes_[kReservedOffset + requestLength_];
        std::fill_n(end, gap, std::uint8_t{0});
        build(end + gap, step, size);
        requestLength_ += gap + size.requestBytes;
        replyLength_ += size.replyBytes;
        return true;
    }

   private:
    static constexpr std::uint32_t kEmptyLength = 1;  // the reserved byte

    std::array<std::uint8_t, kBatchBufferSize> bytes_{};
    std::uint32_t requestLength_ = kEmptyLength;
    std::uint32_t replyLength_ = 0;
};

// Delivers a read's words from its part of the reply; false when the part reports a failure.
bool deliver(const Step& read, const std::uint8_t* part) {
    wordsFromWire(read.words, part + kEntryHeader, read.count);
    return big16(part) == kReadWords;
}

// Walks a batch command and its reply, side by side. Returns the part of the first read that
// failed, or null.
const std::uint8_t* unpack(CUsbStreamData& stream, std::span<const Step> batch,
                           const std::uint8_t* command, const std::uint8_t* reply) {
    for (const Step& step : batch) {
        if (isDebugFullNoticed())
            Quill_Stream_Debug_Full(
                stream.quill(),
                "Retrieving information for quill command SpiAction::SpiActionType = %d",
                static_cast<int>(step.type));
        const bool isRead = step.type == SpiAction::Read;
        PrintStreamDebug(stream, isRead ? reply : command);
        command = nextEntry(command);
        if (!isRead) continue;
        if (!deliver(step, reply)) return reply;
        reply += kEntryHeader + 2 * std::size_t{step.count};
    }
    return nullptr;
}

// Shows a read or a write: "Quill Read [007c 7d] = 0012 00ab ". Not inline, so that only who wants
// the text has its room on the stack.
[[gnu::noinline]] void showAccess(QuillStream* quill, const std::uint8_t* entry) {
    char line[64];
    const unsigned address = big16(entry + 2);
    const unsigned count = big16(entry + 4);
    char last[16] = "";
    if (count != 1) std::snprintf(last, sizeof last, " %x", address + count - 1);
    char words[5 * kShownWords + 1] = "";
    for (unsigned i = 0; i < std::min(count, kShownWords); ++i)
        std::snprintf(words + 5 * i, 6, "%04x ",
                      unsigned{big16(entry + kEntryHeader + 2 * std::size_t{i})});
    std::snprintf(line, sizeof line, "Quill %s [%04x%s] = %s%s",
                  big16(entry) == kWriteWords ? "Write" : "Read", address, last, words,
                  count > kShownWords ? " ..." : "");
    Quill_Stream_Debug_Full(quill, "%s", line);
}

}  // namespace

int StreamSequence(CUsbStreamData& stream, std::span<const Step> list) {
    int result = 0;
    const ResultTrace<int> trace(result);
    BatchFrame frame;
    std::size_t start = 0;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (frame.append(list[i])) continue;
        if (!frame.isEmpty()) {
            result = DoStreamSequence(stream, list.subspan(start, i - start), frame.bytes());
            if (result != 0) return result;
            frame.clear();
        }
        start = i;
        if (!frame.append(list[i]))
            return result = Quill_SetLastError(266, 0, "Read or write too long");
    }
    if (!frame.isEmpty()) result = DoStreamSequence(stream, list.subspan(start), frame.bytes());
    return result;
}

int DoStreamSequence(CUsbStreamData& stream, std::span<const Step> batch, std::uint8_t* frame) {
    const Trace trace;
    // A short reply is no failure. What it lacks reads as zero: a read without a status has failed,
    // one that only lacks words gives zeros. The room at the end is for PrintStreamDebug, which
    // believes the count in the reply and may show words behind it.
    std::array<std::uint8_t, kBatchBufferSize + 2 * kShownWords> reply{};
    if (!Quill_Stream_Command(stream.quill(), frame, reply.data()))
        return Quill_AppendToLastError("Unable to send sequence");

    const bool isBatch = batch.size() > 1;
    if (isBatch) Quill_Stream_Debug_Full(stream.quill(), "[IN ] Quill Batch Operation");
    const std::uint8_t* failed =
        unpack(stream, batch, frame + kCodeOffset, reply.data() + kCodeOffset);
    if (isBatch) Quill_Stream_Debug_Full(stream.quill(), "[OUT] Quill Batch Operation");
    if (failed == nullptr) return 0;
    return Quill_SetLastError(517, little16(failed + 2), "Read failed on USB-SPI");
}

void PrintStreamDebug(CUsbStreamData& stream, const std::uint8_t* entry) {
    const Trace trace;
    QuillStream* quill = stream.quill();
    const std::uint16_t code = big16(entry);
    switch (code) {
        case kReadWordsFailed:
            return Quill_Stream_Debug(quill, "Read failed on quill");
        case kReadWords:
        case kWriteWords:
            if (isDebugFullNoticed()) showAccess(quill, entry);
            return;
        case kSetCommandBits:
            return Quill_Stream_Debug_Full(quill, "Quill Set %s CmdBts - 0x%x",
                                           big16(entry + 2) != 0 ? "Write" : "Read",
                                           unsigned{big16(entry + 4)});
        default:
            return Quill_Stream_Debug_Full(quill, "data->cmd not recognized: %u", unsigned{code});
    }
}

}  // namespace wrenlink
