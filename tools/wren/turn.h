// The right to an adapter for more than one exchange. Hosts that share the adapter agree on a lock
// for it, which the library's variable MUTEXNAME names.
//
// Threads: a Turn is used by one thread. Failures are thrown as Failure.
#ifndef WREN_TURN_H
#define WREN_TURN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "debug_text.h"

namespace wren {

// A lock that all processes of the machine know by its name; one of them has it at a time, and it
// is free again when that one ends.
class NamedLock {
   public:
    explicit NamedLock(const std::string& name);
    NamedLock(const NamedLock&) = delete;
    NamedLock& operator=(const NamedLock&) = delete;
    // Gives it back.
    ~NamedLock();

    // Why it cannot be had; empty when it can.
    const std::string& trouble() const noexcept { return trouble_; }

    // Whether it is held now; waits for a moment when it is not.
    bool take() noexcept;
    void give() noexcept;

   private:
    std::intptr_t handle_;
    std::string trouble_;
};

// The locks of the library that this user cannot have, and why. The library goes without them.
std::vector<std::string> missingLocks();

class Turn {
   public:
    // How the user wants it.
    struct Terms {
        bool wanted = true;
        std::optional<double> mostSeconds;  // to wait; without a limit when there is none
    };

    Turn(const Terms& terms, DebugText& told) : terms_(terms), told_(told) {}

    // Takes the lock of that name, unless it is not wanted or cannot be had, which the user is
    // told. So he is when it takes a while, since another host has it. The adapter is called as
    // given.
    void take(const std::string& lock, const std::string& adapter);
    // Gives it back, and takes it again.
    void give() noexcept;
    void resume();

    // False when other hosts may come between.
    bool isHeld() const noexcept { return held_; }

   private:
    void wait();

    const Terms& terms_;
    DebugText& told_;
    std::string adapter_;
    std::optional<NamedLock> lock_;
    bool held_ = false;
};

}  // namespace wren

#endif
