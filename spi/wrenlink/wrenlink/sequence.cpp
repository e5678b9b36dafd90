#include "wrenlink/sequence.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory_resource>
#include <optional>
#include <vector>

#include "diag/result_sentry.h"
#include "quill/last_error.h"
#include "quill/number_text.h"
#include "quill/stream_variables.h"
#include "wrenlink/batch.h"

namespace wrenlink {
namespace {

constexpr std::uint32_t kHighestAddress = 0xFFFF;
constexpr std::uint32_t kHighestLength = 0xFFFF;

// Room is made for so many steps at first: a host may give a huge number of records of which the
// first is refused.
constexpr std::int32_t kFirstSteps = 1024;

// What reads and writes differ in.
struct Access {
    std::uint32_t pieceLimit;  // words that fit one batch command
    bool forWrites;
    std::uint16_t QuillStream::*bits;
};

constexpr Access kReadAccess = {505, false, &QuillStream::cmdReadBits};
constexpr Access kWriteAccess = {504, true, &QuillStream::cmdWriteBits};

// One submission: the list that gathers and the bits that it will have given the adapter.
class Submission {
   public:
    // For so many records.
    Submission(CUsbStreamData& stream, std::int32_t count)
        : stream_(stream), quill_(stream.quill()) {
        pending_.reserve(static_cast<std::size_t>(std::clamp(count, 0, kFirstSteps)));
    }

    int add(const SpiAction& action);
    int finish();

   private:
    int addAccess(const Access& access, const SpiAction& action);
    bool takesCmdBits();
    void addCmdBits(const Access& access);
    [[gnu::cold]] void prependCmdBits(const Access& access);
    void addPieces(const Access& access, const SpiAction& action);
    int setVariable(const char* name, const char* value);
    int setCmdBits(CommandBits which, const char* value);
    int flush();

    CUsbStreamData& stream_;
    QuillStream* quill_;
    // Short submissions take no memory but this. Long ones take the heap's, whatever memory
    // resource the host has made the default one.
    alignas(Step) std::array<std::byte, 2048> room_;
    std::pmr::monotonic_buffer_resource memory_{room_.data(), room_.size(),
                                                std::pmr::new_delete_resource()};
    std::pmr::vector<Step> pending_{&memory_};
    // What the gathered list sets, for reads and for writes: the adapter has it once it is sent.
    std::optional<std::uint16_t> pendingBits_[2];
};

int invalidArgument() { return Quill_SetLastError(1, 0, "Invalid variable or value"); }

int Submission::add(const SpiAction& action) {
    switch (action.type) {
        case SpiAction::Read:
            return addAccess(kReadAccess, action);
        case SpiAction::Write:
            return addAccess(kWriteAccess, action);
        case SpiAction::SetVar:
            return setVariable(action.u.variable.var, action.u.variable.value);
        default:
            return 0;
    }
}

int Submission::finish() {
    Quill_Stream_Debug_Full(quill_, "Submitting a sequence of %u commands",
                            static_cast<unsigned>(pending_.size()));
    return flush();
}

int Submission::addAccess(const Access& access, const SpiAction& action) {
    const auto& memory = action.u.memory;
    if (memory.address > kHighestAddress)
        return Quill_SetLastError(265, memory.address, "Invalid address");
    if (memory.length > kHighestLength) return Quill_SetLastError(266, 0, "Read or write too long");
    if (memory.data == nullptr && memory.length != 0) return invalidArgument();
    if (takesCmdBits()) addCmdBits(access);
    addPieces(access, action);
    return 0;
}

// Whether the firmware takes command bits: from 1.9 on.
bool Submission::takesCmdBits() {
    const unsigned major = Quill_Stream_MajorVer(quill_);
    const unsigned minor = Quill_Stream_MinorVer(quill_);
    const bool supported = (major >= 1 && minor >= 9) || major >= 2;
    if (isDebugFullNoticed()) {
        Quill_Stream_Debug_Full(quill_, "Quill Major version: %u - Minor version: %u", major,
                                minor);
        Quill_Stream_Debug_Full(quill_, supported ? "Quill version might support cmdbits cache"
                                                  : "Quill version does not support cmdbits cache");
    }
    return supported;
}

// Puts a setting of the command bits in front of an access unless the adapter has them.
void Submission::addCmdBits(const Access& access) {
    const std::uint16_t bits = quill_->*access.bits;
    std::uint16_t cached = 0;
    const bool known = Quill_Stream_GetCmdBitsCache(quill_, &cached, access.forWrites);
    const std::optional<std::uint16_t>& pendingBits = pendingBits_[access.forWrites ? 1 : 0];
    if (!known || pendingBits.value_or(cached) != bits) prependCmdBits(access);
}

void Submission::prependCmdBits(const Access& access) {
    const std::uint16_t bits = quill_->*access.bits;
    if (!access.forWrites)
        Quill_Stream_Debug_Full(
            quill_, "Prepend a new SpiAction to the sequence to set SPICMDREADBITS var");
    pending_.push_back(
        {SpiAction::SetVar, static_cast<std::uint16_t>(access.forWrites ? 1 : 0), bits, nullptr});
    pendingBits_[access.forWrites ? 1 : 0] = bits;
}

void Submission::addPieces(const Access& access, const SpiAction& action) {
    const auto& whole = action.u.memory;
    for (std::uint32_t done = 0; done < whole.length; done += pending_.back().count)
        pending_.push_back(
            {action.type, static_cast<std::uint16_t>(whole.address + done),
             static_cast<std::uint16_t>(std::min(whole.length - done, access.pieceLimit)),
             whole.data + done});
}

int Submission::setVariable(const char* name, const char* value) {
    const CommandBits bits = commandBitsOf(name);
    if (bits != CommandBits::none) return setCmdBits(bits, value);
    const int status = flush();
    return status != 0 ? status : Quill_Stream_SetVar(quill_, name, value);
}

int Submission::setCmdBits(CommandBits which, const char* value) {
    if (Quill_Stream_MajorVer(quill_) == 1 && Quill_Stream_MinorVer(quill_) < 9)
        return Quill_SetLastError(520, 0, "Unable to set command bits, USB-SPI firmware too old");
    if (value == nullptr) return invalidArgument();
    const std::uint16_t bits = parseWord(value);
    if (which != CommandBits::forWrites) quill_->cmdReadBits = bits;
    if (which != CommandBits::forReads) quill_->cmdWriteBits = bits;
    return 0;
}

// Sends what has gathered and starts anew.
int Submission::flush() {
    const int status = StreamSequence(stream_, pending_);
    pending_.clear();
    pendingBits_[0].reset();
    pendingBits_[1].reset();
    return status;
}

// A host's array may stand at any address.
SpiAction actionAt(const SpiAction* actions, std::int32_t index) {
    SpiAction action;
    std::memcpy(
        &action,
        reinterpret_cast<const char*>(actions) + static_cast<std::size_t>(index) * sizeof action,
        sizeof action);
    return action;
}

}  // namespace

int spi_sd_sequence(CUsbStreamData& stream, const SpiAction* actions, std::int32_t count) {
    int result = 0;
    const ResultTrace<int> trace(result);
    if (actions == nullptr && count > 0) return result = invalidArgument();
    Submission submission(stream, count);
    for (std::int32_t i = 0; i < count && result == 0; ++i)
        result = submission.add(actionAt(actions, i));
    if (result == 0) result = submission.finish();
    return result;
}

}  // namespace wrenlink
