#include "interruption.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <thread>

#include "system.h"

namespace wren {

namespace {

// Some systems run the handler on a thread of its own.
std::atomic<bool> noted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler must not wait");

extern "C" void noteInterrupt(int signal) {
    std::signal(signal, SIG_DFL);
    noted = true;
}

}  // namespace

void noteInterrupts() noexcept {
    static std::once_flag once;
    std::call_once(once, [] {
        for (const int signal : {SIGINT, SIGTERM})
            if (system::setSignalHandler(signal, noteInterrupt) == SIG_IGN)
                std::signal(signal, SIG_IGN);
    });
}

bool interrupted() noexcept { return noted; }

bool waitFor(double seconds) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kStep(20);
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (!interrupted() && Clock::now() < end) std::this_thread::sleep_for(kStep);
    return !interrupted();
}

}  // namespace wren
