#include "sim/posix/event_loop.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace quillsim {
namespace {

constexpr int kEventsAtOnce = 64;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

EventLoop::EventLoop()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (!epoll_ || !timer_) fail("event loop");
    watch(timer_.get(), EPOLLIN, [this](std::uint32_t) { runDueTimers(); });
}

EventLoop::WatchId EventLoop::watch(int fd, std::uint32_t events, Handler handler) {
    const WatchId id = nextId_++;
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) fail("epoll_ctl");
    watches_.emplace(id, Watch{fd, std::move(handler)});
    return id;
}

void EventLoop::changeEvents(WatchId id, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    if (::epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, watches_.at(id).fd, &event) != 0) {
        fail("epoll_ctl");
    }
}

void EventLoop::unwatch(WatchId id) {
    const auto found = watches_.find(id);
    if (found == watches_.end()) return;
    ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, found->second.fd, nullptr);
    watches_.erase(found);
}

EventLoop::TimerId EventLoop::callAt(Clock::time_point when, std::function<void()> action) {
    const TimerId timer{when, nextId_++};
    timers_.emplace(timer, std::move(action));
    if (timers_.begin()->first == timer) armTimer();
    return timer;
}

void EventLoop::cancel(const TimerId& timer) { timers_.erase(timer); }

// A timer descriptor wakes more precisely than a time limit on the wait itself.
void EventLoop::armTimer() {
    if (timers_.empty()) return;
    using std::chrono::nanoseconds;
    const auto since = timers_.begin()->first.first.time_since_epoch();
    const auto total = std::chrono::duration_cast<nanoseconds>(since).count();
    itimerspec spec{};
    spec.it_value.tv_sec = static_cast<time_t>(total / 1'000'000'000);
    spec.it_value.tv_nsec = static_cast<long>(total % 1'000'000'000);
    ::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &spec, nullptr);
}

void EventLoop::runDueTimers() {
    std::uint64_t expirations = 0;
    // Nothing to read means only that the timer was set anew since it woke the loop.
    if (::read(timer_.get(), &expirations, sizeof expirations) < 0 && errno != EAGAIN) {
        fail("timer");
    }
    const auto now = Clock::now();
    while (!timers_.empty() && timers_.begin()->first.first <= now) {
        const auto action = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        action();
    }
    armTimer();
}

void EventLoop::run() {
    std::array<epoll_event, kEventsAtOnce> events{};
    while (running_) {
        const int count = ::epoll_wait(epoll_.get(), events.data(), kEventsAtOnce, -1);
        if (count < 0 && errno != EINTR) fail("epoll_wait");
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            // The record is packed: its members must not be bound to references.
            const WatchId id = event.data.u64;
            const auto found = watches_.find(id);
            if (found == watches_.end()) continue;
            // A copy, because a handler may end its own watch.
            const Handler handler = found->second.handler;
            handler(event.events);
        }
    }
}

}  // namespace quillsim
