#include "interruption.h"

#include <atomic>
#include <csignal>
#include <mutex>

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

}  // namespace wren
