#include "sim/model/wire.h"

#include <array>

namespace quillsim {
namespace {

constexpr std::uint16_t kAnyWord = 0xFFFF;
constexpr std::size_t kGap = 2;
constexpr std::size_t kEntryHeader = 6;

constexpr auto kCommands = std::to_array<Command>({
    {Code::read, "read", Shape::entry, 0, 0, kAnyWord},
    {Code::write, "write", Shape::entry, 0, 0, kAnyWord},
    {Code::setDelay, "set-delay", Shape::fixed, 5, 0, kAnyWord},
    {Code::xapState, "xap-state", Shape::fixed, 3, 4, kAnyWord},
    {Code::getDelay, "get-delay", Shape::fixed, 3, 4, kAnyWord},
    {Code::enterDfu, "enter-dfu", Shape::fixed, 3, 0, kAnyWord},
    {Code::adapterId, "adapter-id", Shape::fixed, 3, 6, kAnyWord},
    {Code::firmwareVersion, "firmware-version", Shape::fixed, 3, 4, kAnyWord},
    {Code::setMode, "set-mode", Shape::fixed, 5, 0, 1},
    {Code::selectDevice, "select-device", Shape::fixed, 5, 0, 16},
    {Code::commandBits, "command-bits", Shape::entry, 0, 0, 1},
    {Code::mgcmdInit, "mgcmd-init", Shape::fixed, 7, 0, kAnyWord},
    {Code::mgcmd, "mgcmd", Shape::counted, 0, 0, kMgcmdWordLimit},
});

constexpr std::array<std::string_view, 13> kVerdictNames{
    "good",         "control-code",   "frame-too-short", "frame-length",    "reserved-byte",
    "unknown-code", "request-length", "reply-length",    "entry-truncated", "entry-code",
    "over-budget",  "value",          "firmware"};

Verdict judgeFixed(Bytes frame, const Command& command, std::uint16_t replyLength) {
    if (frame.size() - kReservedAt != command.requestLength) return Verdict::requestLength;
    if (replyLength != command.replyLength) return Verdict::replyLength;
    const bool hasPayload = frame.size() > kPayloadAt;
    if (hasPayload && loadBig(frame, kPayloadAt) > command.highest) return Verdict::value;
    return Verdict::good;
}

Verdict judgeCounted(Bytes frame, const Command& command, std::uint16_t replyLength) {
    if (frame.size() < kPayloadAt + 2) return Verdict::requestLength;
    const std::size_t count = loadBig(frame, kPayloadAt);
    if (count > command.highest) return Verdict::overBudget;
    if (frame.size() != kPayloadAt + 2 + wordBytes(count)) return Verdict::requestLength;
    if (replyLength != 4 + wordBytes(count)) return Verdict::replyLength;
    return Verdict::good;
}

Verdict judgeBatch(Bytes frame, std::uint16_t replyLength, std::uint16_t firmware) {
    if (frame.size() - kReservedAt > kBatchLimit || replyLength > kBatchLimit) {
        return Verdict::overBudget;
    }
    std::size_t replyBytes = 0;
    BatchWalk walk(frame.subspan(kCodeAt));
    for (Entry entry; walk.next(entry);) {
        if (entry.code == Code::read) {
            replyBytes += kEntryHeader + wordBytes(entry.second);
        } else if (entry.code == Code::commandBits) {
            if (!hasCommandBits(firmware)) return Verdict::firmware;
            if (entry.first > findCommand(entry.code)->highest) return Verdict::value;
        }
    }
    if (walk.verdict() != Verdict::good) return walk.verdict();
    return replyBytes == replyLength ? Verdict::good : Verdict::replyLength;
}

}  // namespace

const Command* findCommand(Code code) {
    for (const Command& command : kCommands) {
        if (command.code == code) return &command;
    }
    return nullptr;
}

std::uint16_t loadLittle(Bytes bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

std::uint16_t loadBig(Bytes bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

void storeBig(std::span<std::uint8_t> bytes, std::size_t at, std::uint16_t value) {
    bytes[at] = static_cast<std::uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<std::uint8_t>(value);
}

Code codeOf(Bytes frame) {
    return frame.size() < kPayloadAt ? Code::none : static_cast<Code>(loadBig(frame, kCodeAt));
}

std::string_view verdictName(Verdict verdict) {
    return kVerdictNames[static_cast<std::size_t>(verdict)];
}

bool BatchWalk::stop(Verdict verdict) {
    verdict_ = verdict;
    rest_ = {};
    return false;
}

bool BatchWalk::skipGap() {
    if (rest_.size() < kGap) return stop(Verdict::entryTruncated);
    if (loadBig(rest_, 0) != 0) gapUsed_ = true;
    rest_ = rest_.subspan(kGap);
    return true;
}

bool BatchWalk::next(Entry& entry) {
    if (rest_.empty()) return false;
    if (!atFirst_ && !skipGap()) return false;
    atFirst_ = false;
    if (rest_.size() < kEntryHeader) return stop(Verdict::entryTruncated);

    const auto code = static_cast<Code>(loadBig(rest_, 0));
    const Command* command = findCommand(code);
    if (command == nullptr || command->shape != Shape::entry) return stop(Verdict::entryCode);
    entry = Entry{code, loadBig(rest_, 2), loadBig(rest_, 4), {}};
    rest_ = rest_.subspan(kEntryHeader);
    if (code != Code::write) return true;

    const std::size_t size = wordBytes(entry.second);
    if (rest_.size() < size) return stop(Verdict::entryTruncated);
    entry.words = rest_.first(size);
    rest_ = rest_.subspan(size);
    return true;
}

bool hasCommandBits(std::uint16_t firmware) { return firmware >= 0x0109; }

bool hasMgcmd(std::uint16_t firmware) { return firmware < 0x0100 || firmware > 0x0104; }

Verdict judge(Bytes frame, std::uint16_t firmware) {
    if (frame.size() < kPayloadAt) return Verdict::frameTooShort;
    if (loadLittle(frame, kRequestLengthAt) + kReservedAt != frame.size()) {
        return Verdict::frameLength;
    }
    if (frame[kReservedAt] != 0) return Verdict::reservedByte;
    const Command* command = findCommand(codeOf(frame));
    if (command == nullptr) return Verdict::unknownCode;

    const std::uint16_t replyLength = loadLittle(frame, kReplyLengthAt);
    switch (command->shape) {
        case Shape::entry:
            return judgeBatch(frame, replyLength, firmware);
        case Shape::counted:
            return judgeCounted(frame, *command, replyLength);
        case Shape::fixed:
            break;
    }
    if (command->code == Code::mgcmdInit && !hasMgcmd(firmware)) return Verdict::firmware;
    return judgeFixed(frame, *command, replyLength);
}

}  // namespace quillsim
