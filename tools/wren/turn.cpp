#include "turn.h"

#include <fmt/format.h>

#include <chrono>

#include "failure.h"
#include "interruption.h"

namespace wren {

void Turn::take(const std::string& lock, const std::string& adapter) {
    if (!terms_.wanted) return;
    adapter_ = adapter;
    lock_.emplace(lock);
    if (lock_->trouble().empty()) return wait();
    told_.tell(fmt::format("WARNING: other hosts may come between at adapter {}: no lock {}",
                           adapter_, lock_->trouble()));
    lock_.reset();
}

void Turn::give() noexcept {
    if (lock_) lock_->give();
    held_ = false;
}

void Turn::resume() {
    if (lock_) wait();
}

void Turn::wait() {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;
    constexpr Seconds kWhile(1);
    noteInterrupts();
    const auto start = Clock::now();
    bool told = false;
    while (!(held_ = lock_->take())) {
        const Seconds waited = Clock::now() - start;
        if (interrupted())
            throw Failure(ExitCode::interrupted, "interrupted while another host was at work");
        if (terms_.mostSeconds && waited.count() >= *terms_.mostSeconds)
            throw Failure(ExitCode::unreachable, "another host is at work",
                          "wait longer with --wait, or do not wait for it with --no-lock");
        if (!told && waited >= kWhile)
            told_.tell(fmt::format("waiting for another host at adapter {}", adapter_));
        told = told || waited >= kWhile;
    }
    told_.step(fmt::format("took the lock of adapter {}", adapter_));
}

}  // namespace wren
