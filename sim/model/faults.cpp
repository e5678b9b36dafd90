#include "sim/model/faults.h"

#include <algorithm>

namespace quillsim {
namespace {

// In the order of FaultKind.
constexpr auto kFaults = std::to_array<FaultFacts>({
    {FaultKind::delay, "delay", 1, false},
    {FaultKind::silence, "silence", 0, true},
    {FaultKind::refuse, "refuse", 1, true},
    {FaultKind::shorten, "short", 1, false},
    {FaultKind::lengthen, "long", 1, false},
    {FaultKind::corrupt, "corrupt", 2, false},
    {FaultKind::close, "close", 0, true},
    {FaultKind::empty, "empty", 0, false},
    {FaultKind::runt, "runt", 1, false},
    {FaultKind::badStatus, "badstatus", 1, false},
    {FaultKind::stale, "stale", 0, false},
    {FaultKind::twice, "twice", 0, false},
});

constexpr std::array<std::string_view, 4> kDeliveryNames{"completion", "silence", "close", "runt"};

constexpr std::uint8_t kFiller = 0xEE;

void setRunt(Answer& answer, std::size_t size) {
    answer.delivery = Delivery::runt;
    answer.runtSize = size;
}

void lengthen(Answer& answer, std::span<std::uint8_t> reply, std::size_t more) {
    if (answer.status != 0) return;
    while (more-- > 0 && answer.replySize < reply.size()) reply[answer.replySize++] = kFiller;
}

void repeat(Answer& answer, std::span<std::uint8_t> reply, Bytes earlier) {
    if (answer.status != 0) return;
    answer.replySize = earlier.size();
    std::copy(earlier.begin(), earlier.end(), reply.begin());
}

}  // namespace

std::string_view deliveryName(Delivery delivery) {
    return kDeliveryNames[static_cast<std::size_t>(delivery)];
}

const FaultFacts* findFault(std::string_view name) {
    for (const FaultFacts& facts : kFaults) {
        if (facts.name == name) return &facts;
    }
    return nullptr;
}

const FaultFacts& faultFacts(FaultKind kind) { return kFaults[static_cast<std::size_t>(kind)]; }

void applyFault(const Fault& fault, Answer& answer, std::span<std::uint8_t> reply, Bytes earlier) {
    switch (fault.kind) {
        case FaultKind::delay:
            answer.delayMicroseconds += std::uint64_t{fault.value} * 1000;
            break;
        case FaultKind::silence:
            answer.delivery = Delivery::silence;
            break;
        case FaultKind::refuse:
            answer.status = fault.value;
            answer.replySize = 0;
            break;
        case FaultKind::shorten:
            answer.replySize -= fault.value < answer.replySize ? fault.value : answer.replySize;
            break;
        case FaultKind::lengthen:
            lengthen(answer, reply, fault.value);
            break;
        case FaultKind::corrupt:
            if (fault.value < answer.replySize) {
                reply[fault.value] ^= static_cast<std::uint8_t>(fault.second);
            }
            break;
        case FaultKind::close:
            answer.delivery = Delivery::close;
            break;
        case FaultKind::empty:
            setRunt(answer, 0);
            break;
        case FaultKind::runt:
            setRunt(answer, fault.value);
            break;
        case FaultKind::badStatus:
            if (answer.replySize >= 2) storeBig(reply, 0, static_cast<std::uint16_t>(fault.value));
            break;
        case FaultKind::stale:
            repeat(answer, reply, earlier);
            break;
        case FaultKind::twice:
            answer.times = 2;
            break;
    }
}

bool StruckFaults::prevents() const {
    for (const Fault& fault : all()) {
        if (faultFacts(fault.kind).prevents) return true;
    }
    return false;
}

bool FaultList::arm(const Fault& fault) {
    if (count_ == kMostFaults || fault.remaining == 0) return false;
    faults_[count_++] = fault;
    return true;
}

StruckFaults FaultList::strike(Code code) {
    StruckFaults struck;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count_; ++i) {
        Fault fault = faults_[i];
        if (fault.code == Code::none || fault.code == code) {
            if (fault.skip > 0) {
                --fault.skip;
            } else {
                struck.faults[struck.count++] = fault;
                if (fault.remaining != kForGood) --fault.remaining;
            }
        }
        if (fault.remaining > 0) faults_[kept++] = fault;
    }
    count_ = kept;
    return struck;
}

}  // namespace quillsim
