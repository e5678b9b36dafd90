#include "platform/unshared_posix.h"

#include <pthread.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <thread>

namespace wrenlink::os {
namespace {

// How many pauses there are, and whether a thread forks, or waits to. A lock of the system's could
// not be released in the child, where the threads that hold it do not exist.
constexpr std::uint32_t kForking = 0x80000000;
constinit std::atomic<std::uint32_t> pauses{0};

// The descriptors, each plus 1, or 0. One stands at the place that its number gives, or at the next
// that is free; there are far fewer of them: two for each stream and two for each running call.
constinit std::array<std::atomic<int>, 1024> listed{};

std::atomic<int>& place(int descriptor, std::size_t step) noexcept {
    return listed[(static_cast<std::size_t>(descriptor) + step) % listed.size()];
}

// Puts one value in the place of another that a descriptor has, or is to have.
bool replace(int descriptor, int former, int value) noexcept {
    for (std::size_t step = 0; step < listed.size(); ++step) {
        int expected = former;
        if (place(descriptor, step).compare_exchange_strong(expected, value)) return true;
    }
    return false;
}

// How many forks this process is away from the one that loaded the module. A handle has it in its
// upper half, so that a handle of the parent's never stands for a descriptor that the child has
// opened under the same number.
constinit std::atomic<std::uint32_t> generation{0};
static_assert(sizeof(NativeHandle) == 8 && sizeof(int) == 4);

// Far longer than a pause. A signal's handler that forks may have interrupted a pause, or a fork,
// of its own thread, and would wait for ever; rather than that, its child has a descriptor too
// many.
constexpr std::chrono::milliseconds kLongestWait(200);

void beforeFork() noexcept {
    const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
    const auto await = [deadline](auto isSo) {
        while (!isSo() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::microseconds(50));
    };
    await([] { return (pauses.fetch_or(kForking) & kForking) == 0; });
    await([] { return pauses.load() == kForking; });
}

void afterForkInParent() noexcept {
    pauses.fetch_and(~kForking);
    pauses.notify_all();
}

void afterForkInChild() noexcept {
    for (std::atomic<int>& each : listed) closeQuietly(each.exchange(0) - 1);
    generation.fetch_add(1, std::memory_order_relaxed);
    pauses.store(0);
}

}  // namespace

bool handleForks(std::atomic<bool>& handled, void (*before)(), void (*inParent)(),
                 void (*inChild)()) noexcept {
    if (handled.exchange(true)) return true;
    const int error = ::pthread_atfork(before, inParent, inChild);
    if (error == 0) return true;
    errno = error;
    return handled = false;
}

bool watchForks() noexcept {
    static constinit std::atomic<bool> handled{false};
    return handleForks(handled, beforeFork, afterForkInParent, afterForkInChild);
}

ForkPause::ForkPause() noexcept : generation_(generation) {
    std::uint32_t seen = pauses.load();
    for (;;) {
        if ((seen & kForking) != 0) {
            pauses.wait(seen);
            seen = pauses.load();
        } else if (pauses.compare_exchange_weak(seen, seen + 1)) {
            return;
        }
    }
}
// A child has none of its parent's pauses.
ForkPause::~ForkPause() {
    if (generation_ == generation) pauses.fetch_sub(1);
}

NativeHandle enlist(Descriptor descriptor) noexcept {
    if (!descriptor.valid()) return kNoHandle;
    if (!replace(descriptor.get(), 0, descriptor.get() + 1)) {
        errno = EMFILE;
        return kNoHandle;
    }
    return NativeHandle{generation.load(std::memory_order_relaxed)} << 32 | descriptor.release();
}

int descriptorOf(NativeHandle handle) noexcept {
    if (handle >> 32 != NativeHandle{generation.load(std::memory_order_relaxed)}) return -1;
    return static_cast<int>(handle);
}

void closeUnshared(NativeHandle& handle) noexcept {
    const int descriptor = descriptorOf(std::exchange(handle, kNoHandle));
    if (descriptor < 0) return;
    const ForkPause pause;
    replace(descriptor, descriptor + 1, 0);
    closeQuietly(descriptor);
}

}  // namespace wrenlink::os
