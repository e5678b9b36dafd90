// Faults that a test arms against an adapter, and how they change an answer.
#ifndef WRENLINK_SIM_MODEL_FAULTS_H
#define WRENLINK_SIM_MODEL_FAULTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "sim/model/wire.h"

namespace quillsim {

// How the driver ends a request.
enum class Delivery : std::uint8_t {
    completion,  // status and reply bytes
    silence,     // never; the device stays open
    close,       // by closing the device
    runt         // by a completion that is cut off inside its status
};

std::string_view deliveryName(Delivery delivery);

// What the driver has to do with one request.
struct Answer {
    Delivery delivery = Delivery::completion;
    std::uint32_t status = 0;             // 0 success, else a native error code
    std::size_t replySize = 0;            // bytes in the reply buffer
    std::uint8_t times = 1;               // how often a completion is sent
    std::size_t runtSize = 0;             // bytes of a runt, 0 to 3
    std::uint64_t delayMicroseconds = 0;  // to let pass before the request ends
};

enum class FaultKind : std::uint8_t {
    delay,      // the request ends value milliseconds later
    silence,    // it never ends
    refuse,     // it fails with the native status value
    shorten,    // value bytes fewer than asked for
    lengthen,   // value bytes more than asked for
    corrupt,    // reply byte at value is XORed with second
    close,      // the device closes instead
    empty,      // a completion without a byte
    runt,       // a completion of value bytes, 1 to 3
    badStatus,  // the reply's status field becomes value
    stale,      // it is answered with the reply to an earlier one
    twice,      // its completion is sent twice
};

struct FaultFacts {
    FaultKind kind;
    std::string_view name;
    std::size_t values;  // how many numbers it takes
    bool prevents;       // the adapter does not carry the request out
};

const FaultFacts* findFault(std::string_view name);
const FaultFacts& faultFacts(FaultKind kind);

inline constexpr std::uint32_t kForGood = 0xFFFFFFFF;

struct Fault {
    FaultKind kind = FaultKind::silence;
    Code code = Code::none;       // none: every command
    std::uint32_t skip = 0;       // matching requests to let pass first
    std::uint32_t remaining = 1;  // matching requests to strike, kForGood for all
    std::uint32_t value = 0;
    std::uint32_t second = 0;
};

// Changes an answer, whose reply buffer may be longer than the answer. `earlier` is the reply that
// a stale one repeats, no longer than the buffer.
void applyFault(const Fault& fault, Answer& answer, std::span<std::uint8_t> reply, Bytes earlier);

inline constexpr std::size_t kMostFaults = 16;

// The faults that strike one request, in the order in which they were armed.
struct StruckFaults {
    std::array<Fault, kMostFaults> faults{};
    std::size_t count = 0;

    std::span<const Fault> all() const { return {faults.data(), count}; }
    bool prevents() const;
};

// The armed faults of one adapter. Each counts requests on its own: several may strike one request.
class FaultList {
   public:
    // False when the list is full.
    bool arm(const Fault& fault);
    void clear() { count_ = 0; }
    std::span<const Fault> armed() const { return {faults_.data(), count_}; }
    // Counts a request with this code and hands out the faults that strike it.
    StruckFaults strike(Code code);

   private:
    std::array<Fault, kMostFaults> faults_{};
    std::size_t count_ = 0;
};

}  // namespace quillsim

#endif
