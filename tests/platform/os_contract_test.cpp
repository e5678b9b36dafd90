// What every backend of the operating-system contract must do.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "platform/os.h"
#include "tests/support/test_runtime.h"

namespace wrenlink::os {
namespace {

class OsContract : public testing::Test {
   protected:
    OsContract() { EXPECT_TRUE(chooseNamespace()); }

    test::TestRuntime runtime_;
};

// Fails unless each of several threads is alone with its work, again and again.
template <class Guard>
void expectExclusion(Guard guard) {
    std::atomic<int> inside{0};
    std::array<std::jthread, 4> threads;
    for (std::jthread& thread : threads)
        thread = std::jthread([&] {
            for (int i = 0; i < 200; ++i)
                guard([&] {
                    EXPECT_EQ(inside.fetch_add(1), 0);
                    std::this_thread::yield();
                    inside.fetch_sub(1);
                });
        });
}

TEST_F(OsContract, MutexesExcludeThreads) {
    LocalMutex local;
    expectExclusion([&](auto work) {
        local.enter();
        local.enter();
        local.leave();
        work();
        local.leave();
    });
    ProcessMutex* const kept = openProcessMutex("contract mutex");
    expectExclusion([](auto work) {
        ProcessMutex* const mutex = openProcessMutex("contract mutex");
        lockProcessMutex(mutex);
        work();
        unlockProcessMutex(mutex);
        closeProcessMutex(mutex);
    });
    closeProcessMutex(kept);
}

TEST_F(OsContract, AWaitEndsAfterItsTime) {
    KernelMutex held(runtime_.name("held"));
    ASSERT_EQ(held.wait(0), WaitResult::acquired);
    std::jthread([&] {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(KernelMutex(runtime_.name("held")).wait(40), WaitResult::timedOut);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(35));
    }).join();
}

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
