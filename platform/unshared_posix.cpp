#include "platform/unshared_posix.h"

#include <array>
#include <cerrno>
#include <cstddef>

namespace wrenlink::os {
namespace {

// The pauses share it, and a fork has it alone; it does not wait for ever for those who come later.
pthread_rwlock_t forking = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;

void initialiseLock() noexcept {
    pthread_rwlockattr_t attributes;
    ::pthread_rwlockattr_init(&attributes);
    ::pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    ::pthread_rwlock_init(&forking, &attributes);
    ::pthread_rwlockattr_destroy(&attributes);
}

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

// How many forks this process is away from the one that loaded the module. A handle has it above
// the descriptor: a number that a child uses again is no parent's.
constinit std::atomic<std::uint32_t> generation{0};
static_assert(sizeof(NativeHandle) == 8 && sizeof(int) == 4);

void beforeFork() noexcept { ::pthread_rwlock_wrlock(&forking); }

void afterForkInParent() noexcept { ::pthread_rwlock_unlock(&forking); }

// The lock is made anew, since its holder's id is the parent's.
void afterForkInChild() noexcept {
    for (std::atomic<int>& each : listed) closeQuietly(each.exchange(0) - 1);
    generation.fetch_add(1, std::memory_order_relaxed);
    initialiseLock();
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

ForkPause::ForkPause() noexcept { ::pthread_rwlock_rdlock(&forking); }
ForkPause::~ForkPause() { ::pthread_rwlock_unlock(&forking); }

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
