#include "sim/model/adapter.h"

#include <algorithm>

namespace quillsim {
namespace {

// A status field is the command's code, plus one to report failure.
constexpr std::uint16_t statusOf(Code code, bool failed) {
    return static_cast<std::uint16_t>(static_cast<unsigned>(code) + (failed ? 1 : 0));
}

std::size_t replyWord(std::span<std::uint8_t> reply, Code code, std::uint16_t value) {
    storeBig(reply, 0, statusOf(code, false));
    storeBig(reply, 2, value);
    return 4;
}

}  // namespace

Answer Adapter::handle(const Request& request, std::span<std::uint8_t> reply) {
    RequestRecord record;
    record.capacity = request.replyCapacity;
    record.context = settings.spi;
    record.verdict = request.controlCode == kControlCode ? judge(request.frame, settings.firmware)
                                                         : Verdict::controlCode;
    const StruckFaults struck = faults.strike(codeOf(request.frame));

    Answer answer;
    answer.delayMicroseconds = settings.answerMicroseconds;
    if (record.verdict != Verdict::good) {
        answer.status = refusal_;
    } else if (!struck.prevents()) {
        const std::size_t size = carryOut(request.frame, reply);
        answer.replySize = size < request.replyCapacity ? size : request.replyCapacity;
    }
    for (const Fault& fault : struck.all()) {
        applyFault(fault, answer, reply, {latestReply_.data(), latestReplySize_});
        record.faultKinds |= 1u << static_cast<unsigned>(fault.kind);
    }
    const Bytes sent = reply.first(answer.replySize);
    if (!sent.empty()) {
        latestReplySize_ = std::min(sent.size(), latestReply_.size());
        std::copy_n(sent.begin(), latestReplySize_, latestReply_.begin());
    }
    record.answer = answer;
    log.add(record, request.frame, sent);
    return answer;
}

void Adapter::opened() {
    ++opens_.total;
    ++opens_.now;
    if (opens_.now > opens_.peak) opens_.peak = opens_.now;
}

void Adapter::clearLog() {
    log.clear();
    opens_.total = opens_.now;
    opens_.peak = opens_.now;
}

void Adapter::setFaulty(std::uint16_t first, std::uint16_t last) {
    for (std::uint32_t address = first; address <= last; ++address) {
        faulty_[address / 8] |= static_cast<std::uint8_t>(1u << address % 8);
    }
}

bool Adapter::isFaulty(std::uint32_t address) const {
    address %= kMemoryWords;
    return (faulty_[address / 8] >> address % 8 & 1) != 0;
}

std::size_t Adapter::carryOut(Bytes frame, std::span<std::uint8_t> reply) {
    const Code code = codeOf(frame);
    const bool hasArgument = frame.size() >= kPayloadAt + 2;
    const std::uint16_t argument = hasArgument ? loadBig(frame, kPayloadAt) : std::uint16_t{0};
    switch (code) {
        case Code::read:
        case Code::write:
        case Code::commandBits:
            return carryOutBatch(frame, reply);
        case Code::mgcmd:
            return carryOutMgcmd(frame, reply);
        case Code::setDelay:
            settings.spi.delay = argument;
            return 0;
        case Code::setMode:
            settings.spi.mode = argument;
            return 0;
        case Code::selectDevice:
            settings.spi.device = argument;
            return 0;
        case Code::enterDfu:
            settings.dfu = true;
            return 0;
        case Code::mgcmdInit:
            settings.mgcmdFirst = argument;
            settings.mgcmdSecond = loadBig(frame, kPayloadAt + 2);
            settings.mgcmdReady = true;
            return 0;
        case Code::xapState:
            replyWord(reply, code, settings.xap);
            storeBig(reply, 0, statusOf(code, settings.xapFails));
            return 4;
        case Code::getDelay:
            return replyWord(reply, code, settings.spi.delay);
        case Code::firmwareVersion:
            return replyWord(reply, code, settings.firmware);
        case Code::adapterId:
            replyWord(reply, code, static_cast<std::uint16_t>(settings.id >> 16));
            storeBig(reply, 4, static_cast<std::uint16_t>(settings.id));
            return 6;
        case Code::none:
            break;
    }
    return 0;
}

std::size_t Adapter::carryOutBatch(Bytes frame, std::span<std::uint8_t> reply) {
    std::size_t size = 0;
    BatchWalk walk(frame.subspan(kCodeAt));
    for (Entry entry; walk.next(entry);) {
        if (entry.code == Code::read) {
            size += readWords(entry, reply.subspan(size));
        } else if (entry.code == Code::write) {
            writeWords(entry);
        } else {
            (entry.first == 0 ? settings.spi.readBits : settings.spi.writeBits) = entry.second;
        }
    }
    return size;
}

std::size_t Adapter::readWords(const Entry& entry, std::span<std::uint8_t> reply) const {
    bool failed = false;
    for (std::uint32_t i = 0; i < entry.second; ++i) {
        failed = failed || isFaulty(entry.first + i);
        storeBig(reply, 6 + wordBytes(i), word(entry.first + i));
    }
    storeBig(reply, 0, statusOf(Code::read, failed));
    storeBig(reply, 2, entry.first);
    storeBig(reply, 4, entry.second);
    return 6 + wordBytes(entry.second);
}

void Adapter::writeWords(const Entry& entry) {
    for (std::uint32_t i = 0; i < entry.second; ++i) {
        const std::uint32_t address = entry.first + i;
        if (!isFaulty(address)) setWord(address, loadBig(entry.words, wordBytes(i)));
    }
}

// Answers word by word: request XOR first value, plus second value. A failure report carries zeros.
std::size_t Adapter::carryOutMgcmd(Bytes frame, std::span<std::uint8_t> reply) const {
    const bool failed = !settings.mgcmdReady || !hasMgcmd(settings.firmware);
    const std::uint16_t count = loadBig(frame, kPayloadAt);
    storeBig(reply, 0, statusOf(Code::mgcmd, failed));
    storeBig(reply, 2, count);
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned asked = loadBig(frame, kPayloadAt + 2 + wordBytes(i));
        const unsigned answered = (asked ^ settings.mgcmdFirst) + settings.mgcmdSecond;
        storeBig(reply, 4 + wordBytes(i),
                 failed ? std::uint16_t{0} : static_cast<std::uint16_t>(answered));
    }
    return 4 + wordBytes(count);
}

}  // namespace quillsim
