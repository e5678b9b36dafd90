// The log of the latest requests that reached one adapter, whole frames and replies included.
#ifndef WRENLINK_SIM_MODEL_REQUEST_LOG_H
#define WRENLINK_SIM_MODEL_REQUEST_LOG_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "sim/model/faults.h"
#include "sim/model/text.h"
#include "sim/model/wire.h"

namespace quillsim {

inline constexpr std::size_t kLogEntries = 512;
// The most bytes of a frame and of a reply that are kept; no frame that is carried out is longer.
inline constexpr std::size_t kLogFrameBytes = 1040;

// The settings that a request meets, before it changes them.
struct RequestContext {
    std::uint16_t delay = 0;
    std::uint16_t mode = 0;
    std::uint16_t device = 0;
    std::uint16_t readBits = 0;
    std::uint16_t writeBits = 0;
};

struct RequestRecord {
    std::uint32_t capacity = 0;  // reply bytes that the host has room for
    Verdict verdict = Verdict::good;
    Answer answer;
    std::uint32_t faultKinds = 0;  // bit (1 << FaultKind) for each fault that struck
    RequestContext context;
};

class RequestLog {
   public:
    // Adds a request under the next sequence number, from 1 on.
    void add(const RequestRecord& record, Bytes frame, Bytes reply);
    // Forgets every request; numbering goes on.
    void clear() { firstKept_ = last_ + 1; }
    // The sequence number of the latest request, 0 before the first.
    std::uint64_t last() const { return last_; }
    // Writes one line for each request still held, from a sequence number on.
    void print(TextWriter& out, std::uint64_t from) const;

   private:
    // A frame or a reply, as far as it is kept.
    struct KeptBytes {
        std::size_t size = 0;
        std::array<std::uint8_t, kLogFrameBytes> bytes{};

        void keep(Bytes whole);
        Bytes all() const { return Bytes(bytes).first(size); }
    };
    struct Slot {
        RequestRecord record;
        std::size_t frameSize = 0;
        KeptBytes frame;
        KeptBytes reply;
    };

    static void printSlot(TextWriter& out, std::uint64_t sequence, const Slot& slot);

    std::array<Slot, kLogEntries> slots_{};
    std::uint64_t last_ = 0;
    std::uint64_t firstKept_ = 1;
};

}  // namespace quillsim

#endif
