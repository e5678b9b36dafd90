// Several modules of one process that each carry the per-thread store, and a fork of that process.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "platform/os.h"
#include "platform/thread_local_slot.h"
#include "tests/platform/module_sharing.h"

namespace wrenlink {
namespace {

class Module {
   public:
    explicit Module(const char* path) : path_(path) {
        const std::lock_guard guard(loading);
        handle_ = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (handle_ == nullptr) throw std::runtime_error(::dlerror());
        find(set, "storeSet");
        find(get, "storeGet");
        find(workedAtLoad, "storeWorkedAtLoad");
        find(threadEnd, "storeThreadEnd");
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    ~Module() {
        const std::lock_guard guard(loading);
        ::dlclose(handle_);
        EXPECT_EQ(::dlopen(path_, RTLD_NOW | RTLD_NOLOAD), nullptr) << path_ << " stays loaded";
    }

    decltype(&storeSet) set = nullptr;
    decltype(&storeGet) get = nullptr;
    decltype(&storeWorkedAtLoad) workedAtLoad = nullptr;
    decltype(&storeThreadEnd) threadEnd = nullptr;

   private:
    template <class Function>
    void find(Function& function, const char* name) {
        function = reinterpret_cast<Function>(::dlsym(handle_, name));
    }

    const char* path_;
    void* handle_ = nullptr;
    // The loader has a lock of its own, but the thread sanitizer does not know it, and would take
    // two modules that were loaded at one address in turn for one.
    static inline std::mutex loading;
};

void doNothing(void* /*value*/) {}

TEST(StoreModules, ShareOneRegistry) { test::expectOneRegistry<Module>(); }

TEST(StoreModules, LoadAndWorkInManyThreadsAtOnce) {
    StoreCounter discarded{0};
    const auto work = [&](const char* path) {
        for (int round = 0; round < 50; ++round) {
            const Module module(path);
            std::thread([&] { module.set(&discarded); }).join();
        }
    };
    std::thread other([&] { work(STORE_MODULE_B); });
    work(STORE_MODULE_A);
    other.join();
    EXPECT_EQ(discarded, 100);
    EXPECT_EQ(test::attachCount(), 0U);
}

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
[[noreturn]] void checkInChild(const ThreadLocalSlot& slot, const Module& module, void* expected) {
    ::alarm(20);
    static StoreCounter own{0};
    bool good = slot.get() == expected;
    ThreadLocalSlot another(doNothing);
    good = good && another.set(&own) && another.get() == &own;
    module.threadEnd();
    good = good && slot.get() == nullptr && module.set(&own) && module.get() == &own;
    endChild(good);
}

TEST(StoreModules, ForkedChildHasItsOwnWorkingStore) {
    StoreCounter value{0};  // counts until the module is gone
    const Module module(STORE_MODULE_A);
    ThreadLocalSlot slot(doNothing);
    slot.set(&value);
    module.set(&value);
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
        if (child == 0) checkInChild(slot, module, &value);
        EXPECT_TRUE(endedWell(child)) << "round " << round;
        if (HasFailure()) break;
    }
    done = true;
    busy.join();
    EXPECT_EQ(slot.get(), &value) << "the child's thread end is not the parent's";
    EXPECT_EQ(value, 0);
}

TEST(StoreModules, ForkWaitsUntilTheStoreIsWhole) {
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
}

}  // namespace
}  // namespace wrenlink
