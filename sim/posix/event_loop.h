// The server's one thread: runs a function when a descriptor is ready or a time has come, and
// sleeps in between. Every function runs inside run(), so nothing here or above needs a lock.
#ifndef QUILLSIM_SERVER_EVENT_LOOP_H
#define QUILLSIM_SERVER_EVENT_LOOP_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>
#include <utility>

#include "sim/posix/file_descriptor.h"

namespace quillsim {

class EventLoop {
   public:
    using Clock = std::chrono::steady_clock;
    // Never reused, so that an event which is already fetched cannot reach a successor.
    using WatchId = std::uint64_t;
    using TimerId = std::pair<Clock::time_point, std::uint64_t>;
    using Handler = std::function<void(std::uint32_t events)>;

    // Throws std::system_error when the system has no descriptors left, as watch() does.
    EventLoop();

    // Calls the handler with epoll events while the descriptor, which stays the caller's, is ready.
    // Hang-ups are always told.
    WatchId watch(int fd, std::uint32_t events, Handler handler);
    void changeEvents(WatchId id, std::uint32_t events);
    // To be called before the descriptor is closed.
    void unwatch(WatchId id);

    // Calls once, at a time, to within the precision of the kernel's timers.
    TimerId callAt(Clock::time_point when, std::function<void()> action);
    void cancel(const TimerId& timer);

    // Serves until stop().
    void run();
    void stop() { running_ = false; }

   private:
    struct Watch {
        int fd;
        Handler handler;
    };

    void armTimer();
    void runDueTimers();

    FileDescriptor epoll_;
    FileDescriptor timer_;
    std::unordered_map<WatchId, Watch> watches_;
    std::map<TimerId, std::function<void()>> timers_;
    std::uint64_t nextId_ = 1;
    bool running_ = true;
};

}  // namespace quillsim

#endif
