// What every backend of the operating-system contract must do.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/os.h"
#include "tests/support/child_process.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {
namespace {

using test::Arguments;
using test::awaitParent;
using test::ChildProcess;
using test::ChildRole;
using test::tellParent;

class OsContract : public testing::Test {
   protected:
    OsContract() { EXPECT_TRUE(chooseNamespace()); }

    test::TestRuntime runtime_;
};

bool holds(WaitResult result) {
    return result == WaitResult::acquired || result == WaitResult::abandoned;
}

// Runs one body in several threads at once.
template <class Body>
void inThreads(std::size_t count, Body body) {
    std::vector<std::thread> threads;
    threads.reserve(count);
    while (threads.size() < count) threads.emplace_back(body);
    for (std::thread& thread : threads) thread.join();
}

// Fails unless each of several threads is alone inside, again and again.
template <class Enter, class Leave>
void expectExclusion(Enter enter, Leave leave) {
    std::atomic<int> inside{0};
    inThreads(4, [&] {
        for (int i = 0; i < 200; ++i) {
            auto lock = enter();
            EXPECT_EQ(inside.fetch_add(1), 0);
            std::this_thread::yield();
            inside.fetch_sub(1);
            leave(lock);
        }
    });
}

// ---- Kernel mutex ------------------------------------------------------------------------------

// Holds a mutex until told, then waits to be ended.
const ChildRole mutexHolder("hold mutex", [](const Arguments& arguments) {
    chooseNamespace();
    KernelMutex mutex(arguments.at(0));
    tellParent(holds(mutex.wait(kInfinite)) ? "held" : "failed");
    awaitParent();
    tellParent(mutex.release() ? "released" : "failed");
    awaitParent();
    return 0;
});

TEST_F(OsContract, MutexesExcludeThreads) {
    LocalMutex local;
    expectExclusion(
        [&] {
            local.enter();
            local.enter();
            local.leave();
            return &local;
        },
        [](LocalMutex* mutex) { mutex->leave(); });

    ProcessMutex* const kept = openProcessMutex("contract mutex");
    expectExclusion(
        [] {
            ProcessMutex* const mutex = openProcessMutex("contract mutex");
            lockProcessMutex(mutex);
            return mutex;
        },
        [](ProcessMutex* mutex) {
            unlockProcessMutex(mutex);
            closeProcessMutex(mutex);
        });
    closeProcessMutex(kept);
}

TEST_F(OsContract, MutexExcludesProcesses) {
    const std::string name = runtime_.name("processes");
    ChildProcess holder("hold mutex", {name});
    ASSERT_EQ(holder.readLine(), "held");
    KernelMutex mutex(name);
    EXPECT_EQ(mutex.wait(0), WaitResult::timedOut);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(mutex.wait(40), WaitResult::timedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(35));

    holder.go();
    ASSERT_EQ(holder.readLine(), "released");
    EXPECT_EQ(mutex.wait(10000), WaitResult::acquired);
    EXPECT_TRUE(mutex.release());
}

// ---- File mapping ------------------------------------------------------------------------------

constexpr std::size_t kBlockSize = 6000;

// A mapping with its view.
struct Block {
    bool existed = true;
    FileMapping mapping;
    char* view = nullptr;

    explicit Block(const std::string& name, std::size_t size = kBlockSize)
        : mapping(FileMapping::open(name, size, existed)),
          view(mapping.valid() ? static_cast<char*>(mapping.map(size)) : nullptr) {}
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() {
        if (view != nullptr) FileMapping::unmap(view, kBlockSize);
    }
};

TEST_F(OsContract, MappingHasItsSizeAndComesZeroed) {
    const std::string name = runtime_.name("block");
    for (int round = 0; round < 2; ++round) {
        const Block block(name);
        ASSERT_NE(block.view, nullptr);
        EXPECT_FALSE(block.existed) << "it went with its last holder";
        EXPECT_EQ(std::string(block.view, kBlockSize), std::string(kBlockSize, '\0'));
        block.view[kBlockSize - 1] = 'c';
        const Block again(name);
        EXPECT_TRUE(again.existed);
        EXPECT_EQ(again.view[kBlockSize - 1], 'c');
        EXPECT_EQ(Block(name, 2 * kBlockSize).view, nullptr) << "another size";
    }
}

// ---- System ------------------------------------------------------------------------------------

TEST_F(OsContract, ErrorTextIsCutAndTerminated) {
    char whole[256] = {};
    errorText(2, whole, sizeof whole);  // "no such file", on every system
    ASSERT_GT(std::strlen(whole), 4U);
    char cut[5] = {'x', 'x', 'x', 'x', 'x'};
    errorText(2, cut, sizeof cut);
    EXPECT_EQ(std::string(cut), std::string(whole, 4));
    errorText(2, cut, 0);
    EXPECT_EQ(std::string(cut), std::string(whole, 4));
}

}  // namespace
}  // namespace wrenlink::os
