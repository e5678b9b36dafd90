#include "platform/shared_memory.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/test_runtime.h"

namespace wrenlink {
namespace {

constexpr std::size_t kSize = 4;
constexpr std::byte kUnknown{0xFF};

class SharedMemoryTest : public testing::Test {
   protected:
    test::TestRuntime runtime_;
};

TEST_F(SharedMemoryTest, CreatorFillsAndOthersFind) {
    const std::string name = runtime_.name("quilldelays.100");
    for (int round = 0; round < 2; ++round) {
        SharedMemory first(name, kSize, kUnknown);
        ASSERT_NE(first.view(), nullptr);
        EXPECT_TRUE(first.created());
        for (std::size_t i = 0; i < kSize; ++i) EXPECT_EQ(first.view()[i], kUnknown);
        first.view()[kSize - 1] = std::byte{0x2A};
        SharedMemory second(name, kSize, kUnknown);
        ASSERT_NE(second.view(), nullptr);
        EXPECT_FALSE(second.created());
        EXPECT_EQ(second.view()[kSize - 1], std::byte{0x2A});
    }
}

TEST_F(SharedMemoryTest, ViewMayBeAskedForUnderTheRegionsMutex) {
    SharedMemory region(runtime_.name("held"), kSize, kUnknown);
    const NamedMutexGuard guard(region.mutex());
    EXPECT_NE(region.view(), nullptr);
}

TEST_F(SharedMemoryTest, ThreadsMapARegionOnce) {
    SharedMemory region(runtime_.name("threads"), kSize, kUnknown);
    std::vector<std::byte*> views(4);
    std::vector<std::thread> threads;
    threads.reserve(views.size());
    for (std::byte*& view : views) threads.emplace_back([&] { view = region.view(); });
    for (std::thread& thread : threads) thread.join();
    for (const std::byte* view : views) EXPECT_EQ(view, region.view());
}

}  // namespace
}  // namespace wrenlink
