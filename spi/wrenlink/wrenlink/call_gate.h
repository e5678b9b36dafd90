// Keeps the library's unload and the calls of its exports apart. A process that exits unloads the
// library while threads may still be in calls, and goes on to run them for a while: those that are
// in a call keep everything they use, and those that begin one later find the gate shut.
//
// Any thread may use this. A call costs two steps of one atomic number.
#ifndef WRENLINK_WRENLINK_CALL_GATE_H
#define WRENLINK_WRENLINK_CALL_GATE_H

#include <atomic>
#include <cstdint>

namespace wrenlink {

class CallGate {
   public:
    // False when the gate is shut; otherwise the call has to leave.
    bool enter() noexcept {
        if ((state_.fetch_add(1) & kShut) == 0) return true;
        leave();
        return false;
    }
    void leave() noexcept { state_.fetch_sub(1); }
    // Shuts the gate for good; false, and nothing happens, while a call is running.
    bool shut() noexcept {
        std::uint32_t idle = 0;
        return state_.compare_exchange_strong(idle, kShut);
    }

   private:
    static constexpr std::uint32_t kShut = 0x80000000;

    std::atomic<std::uint32_t> state_{0};  // the calls that are running, and kShut
};

// The one of the library.
inline constinit CallGate callGate;

// A call of an export, from its construction to its destruction. Calls may nest.
class Call {
   public:
    Call() noexcept : runs_(callGate.enter()) {}
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() {
        if (runs_) callGate.leave();
    }

    // Whether it may use the library: nothing of it may be touched otherwise.
    explicit operator bool() const noexcept { return runs_; }

   private:
    const bool runs_;
};

}  // namespace wrenlink

#endif
