// The per-thread store in a child made by fork.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "platform/os.h"
#include "platform/thread_local_slot.h"

namespace wrenlink {
namespace {

void doNothing(void* /*value*/) {}

// Ends a child of fork. A good one ends itself by SIGKILL: to a memory checker an exit would be the
// end of a program that has lost its other threads' memory.
[[noreturn]] void endChild(bool good) {
    if (good) ::kill(::getpid(), SIGKILL);
    ::_exit(1);
}

bool endedWell(pid_t child) {
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFSIGNALED(status) &&
           WTERMSIG(status) == SIGKILL;
}

// One that hangs is ended by its alarm.
[[noreturn]] void checkInChild(const ThreadLocalSlot& slot, void* expected) {
    ::alarm(20);
    static int own;
    bool good = slot.get() == expected;
    ThreadLocalSlot another(doNothing);
    good = good && another.set(&own) && another.get() == &own;
    ThreadLocalSlot::threadEnd();
    good = good && slot.get() == nullptr && another.set(&own) && another.get() == &own;
    endChild(good);
}

TEST(StoreInFork, ChildHasItsOwnWorkingStore) {
    int value = 0;
    ThreadLocalSlot slot(doNothing);
    slot.set(&value);
    // Others hold the store's mutex at many of the forks.
    std::atomic<bool> done{false};
    std::thread busy([&] {
        while (!done) {
            ThreadLocalSlot shortLived(doNothing);
            shortLived.set(&shortLived);
        }
    });
    for (int round = 0; round < 100; ++round) {
        const pid_t child = ::fork();
        if (child == 0) checkInChild(slot, &value);
        EXPECT_TRUE(endedWell(child)) << "round " << round;
        if (HasFailure()) break;
    }
    done = true;
    busy.join();
    EXPECT_EQ(slot.get(), &value) << "the child's thread end is not the parent's";
}

TEST(StoreInFork, WaitsUntilTheStoreIsWhole) {
    os::ProcessMutex* const mutex = os::openProcessMutex("TLS Mutex");
    ASSERT_NE(mutex, nullptr);
    std::atomic<bool> atWork{false};
    std::thread other([&] {
        os::lockProcessMutex(mutex);
        atWork = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        atWork = false;
        os::unlockProcessMutex(mutex);
    });
    while (!atWork) std::this_thread::yield();
    const pid_t child = ::fork();
    if (child == 0) endChild(!atWork);
    EXPECT_TRUE(endedWell(child));
    other.join();
    os::closeProcessMutex(mutex);
    const pid_t later = ::fork();
    if (later == 0) endChild(true);
    EXPECT_TRUE(endedWell(later)) << "there is no store any more";
}

}  // namespace
}  // namespace wrenlink
