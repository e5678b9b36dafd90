#include "sim/model/request_log.h"

#include <algorithm>

namespace quillsim {
namespace {

void printFaults(TextWriter& out, std::uint32_t kinds) {
    if (kinds == 0) {
        out.text("none");
        return;
    }
    bool first = true;
    for (std::uint32_t kind = 0; kinds >> kind != 0; ++kind) {
        if ((kinds >> kind & 1) == 0) continue;
        if (!first) out.text("+");
        out.text(faultFacts(static_cast<FaultKind>(kind)).name);
        first = false;
    }
}

void printAccess(TextWriter& out, const Entry& entry, std::uint16_t bits) {
    out.text(entry.code == Code::read ? "read(" : "write(");
    out.hex(entry.first, 4).text(",").decimal(entry.second);
    out.text(",bits=").hex(bits, 4).text(")");
}

// A read or write is shown with the command bits that it meets, settings earlier in the same batch
// included.
void printBatch(TextWriter& out, Bytes frame, RequestContext context) {
    BatchWalk walk(frame.subspan(kCodeAt));
    bool first = true;
    for (Entry entry; walk.next(entry);) {
        if (!first) out.text("+");
        first = false;
        if (entry.code == Code::commandBits) {
            (entry.first == 0 ? context.readBits : context.writeBits) = entry.second;
            out.text(entry.first == 0 ? "read-bits(" : "write-bits(");
            out.hex(entry.second, 4).text(")");
        } else {
            const bool isRead = entry.code == Code::read;
            printAccess(out, entry, isRead ? context.readBits : context.writeBits);
        }
    }
    out.field("gaps").text(walk.gapUsed() ? "used" : "zero");
}

void printSingle(TextWriter& out, Bytes frame, const Command& command) {
    out.text(command.name).text("(");
    const std::size_t words = command.shape == Shape::counted ? 1 : (frame.size() - kPayloadAt) / 2;
    for (std::size_t i = 0; i < words; ++i) {
        if (i > 0) out.text(",");
        out.hex(loadBig(frame, kPayloadAt + 2 * i), 4);
    }
    out.text(")").field("gaps").text("zero");
}

void printOperations(TextWriter& out, Bytes frame, const RequestContext& context) {
    const Command* command = findCommand(codeOf(frame));
    if (command->shape == Shape::entry) {
        printBatch(out, frame, context);
    } else {
        printSingle(out, frame, *command);
    }
}

}  // namespace

void RequestLog::KeptBytes::keep(Bytes whole) {
    size = std::min(whole.size(), bytes.size());
    std::copy_n(whole.begin(), size, bytes.begin());
}

void RequestLog::add(const RequestRecord& record, Bytes frame, Bytes reply) {
    Slot& slot = slots_[++last_ % kLogEntries];
    slot.record = record;
    slot.frameSize = frame.size();
    slot.frame.keep(frame);
    slot.reply.keep(reply);
}

void RequestLog::print(TextWriter& out, std::uint64_t from) const {
    const std::uint64_t oldest = last_ < kLogEntries ? 1 : last_ - kLogEntries + 1;
    for (std::uint64_t sequence = std::max({from, firstKept_, oldest}); sequence <= last_;
         ++sequence)
        printSlot(out, sequence, slots_[sequence % kLogEntries]);
}

void RequestLog::printSlot(TextWriter& out, std::uint64_t sequence, const Slot& slot) {
    const Bytes frame = slot.frame.all();
    const RequestRecord& record = slot.record;

    out.field("seq").decimal(sequence);
    out.field("code").hex(static_cast<std::uint16_t>(codeOf(frame)), 4);
    out.field("verdict").text(verdictName(record.verdict));
    out.field("faults");
    printFaults(out, record.faultKinds);
    out.field("end").text(deliveryName(record.answer.delivery));
    out.field("status").decimal(record.answer.status);
    out.field("capacity").decimal(record.capacity);
    out.field("size").decimal(slot.frameSize);
    out.field("delay").decimal(record.context.delay);
    out.field("mode").decimal(record.context.mode);
    out.field("device").decimal(record.context.device);
    out.field("frame").bytes(frame);
    out.field("reply").bytes(slot.reply.all());
    out.field("ops");
    if (record.verdict == Verdict::good) {
        printOperations(out, frame, record.context);
    } else {
        out.text("none");
    }
    out.endLine();
}

}  // namespace quillsim
