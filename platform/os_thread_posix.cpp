#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <type_traits>

#include "platform/os.h"
#include "platform/process_block_posix.h"
#include "platform/unshared_posix.h"

namespace wrenlink::os {

struct ProcessMutex {
    pthread_mutex_t mutex;
};

namespace {

// pthread functions return their error.
bool succeeded(int error) noexcept {
    if (error != 0) errno = error;
    return error == 0;
}

// Recursive, because each module's fork handler locks it in the thread that forks.
void initialiseMutex(void* block) noexcept {
    pthread_mutexattr_t attributes;
    ::pthread_mutexattr_init(&attributes);
    ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    ::pthread_mutex_init(&static_cast<ProcessMutex*>(block)->mutex, &attributes);
    ::pthread_mutexattr_destroy(&attributes);
}

void destroyMutex(void* block) noexcept {
    ::pthread_mutex_destroy(&static_cast<ProcessMutex*>(block)->mutex);
}

// The mutex that this module has open, and how often. A module has no more than one: the store's.
std::atomic<ProcessMutex*> openMutex{nullptr};
std::atomic<std::uint32_t> openCount{0};

// A fork holds the mutex, so that the child finds what it guards whole, and finds it free: the
// thread that held it in the parent does not exist in the child.
void beforeFork() noexcept {
    ProcessMutex* const mutex = openMutex.load(std::memory_order_acquire);
    if (mutex != nullptr) lockProcessMutex(mutex);
}

void afterForkInParent() noexcept {
    ProcessMutex* const mutex = openMutex.load(std::memory_order_acquire);
    if (mutex != nullptr) unlockProcessMutex(mutex);
}

void afterForkInChild() noexcept {
    ProcessMutex* const mutex = openMutex.load(std::memory_order_acquire);
    if (mutex != nullptr) initialiseMutex(mutex);
}

}  // namespace

ProcessMutex* openProcessMutex(const char* name) noexcept {
    static constinit std::atomic<bool> handled{false};
    if (!handleForks(handled, beforeFork, afterForkInParent, afterForkInChild)) return nullptr;
    bool existed = false;
    auto* const mutex =
        static_cast<ProcessMutex*>(openBlock(name, sizeof(ProcessMutex), initialiseMutex, existed));
    if (mutex == nullptr) return nullptr;
    openCount.fetch_add(1);
    openMutex.store(mutex, std::memory_order_release);
    return mutex;
}

void lockProcessMutex(ProcessMutex* mutex) noexcept { ::pthread_mutex_lock(&mutex->mutex); }
void unlockProcessMutex(ProcessMutex* mutex) noexcept { ::pthread_mutex_unlock(&mutex->mutex); }

void closeProcessMutex(ProcessMutex* mutex) noexcept {
    // A fork under way unlocks what it locked before the mutex may go.
    lockProcessMutex(mutex);
    if (openCount.fetch_sub(1) == 1) openMutex.store(nullptr, std::memory_order_release);
    unlockProcessMutex(mutex);
    closeBlock(mutex, destroyMutex);
}

static_assert(std::is_same_v<ThreadIndex, pthread_key_t>);

bool makeThreadIndex(ThreadIndex& index) noexcept {
    return succeeded(::pthread_key_create(&index, nullptr));
}

void* threadValue(ThreadIndex index) noexcept { return ::pthread_getspecific(index); }

bool setThreadValue(ThreadIndex index, void* value) noexcept {
    return succeeded(::pthread_setspecific(index, value));
}

void freeThreadIndex(ThreadIndex index) noexcept { ::pthread_key_delete(index); }

void* allocateRecord(std::size_t size) noexcept { return std::malloc(size); }
void freeRecord(void* record) noexcept { std::free(record); }

}  // namespace wrenlink::os
