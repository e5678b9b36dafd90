#include "platform/shared_memory.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/test_runtime.h"

namespace wrenlink {
namespace {

constexpr std::size_t kSize = 4;
constexpr std::byte kUnknown{0xFF};
constexpr std::byte kWritten{0x2A};

class SharedMemoryTest : public testing::Test {
   protected:
    test::TestRuntime runtime_;
};

// Writes into a region's last byte and waits to be ended.
const test::ChildRole writer("write region", [](const test::Arguments& arguments) {
    SharedMemory region(arguments.at(0), kSize, kUnknown);
    if (region.view() == nullptr) return 1;
    region.view()[kSize - 1] = kWritten;
    test::tellParent(region.created() ? "created" : "found");
    test::awaitParent();
    return 0;
});

TEST_F(SharedMemoryTest, CreatorFillsAndOthersFind) {
    const std::string name = runtime_.name("quilldelays.100");
    SharedMemory first(name, kSize, kUnknown);
    ASSERT_NE(first.view(), nullptr);
    EXPECT_EQ(first.view(), first.view());
    EXPECT_TRUE(first.created());
    for (std::size_t i = 0; i < kSize; ++i) EXPECT_EQ(first.view()[i], kUnknown);

    test::ChildProcess child("write region", {name});
    EXPECT_EQ(child.readLine(), "found");
    EXPECT_EQ(first.view()[kSize - 1], kWritten);
    SharedMemory second(name, kSize, kUnknown);
    ASSERT_NE(second.view(), nullptr);
    EXPECT_FALSE(second.created());
    EXPECT_EQ(second.view()[kSize - 1], kWritten);
}

TEST_F(SharedMemoryTest, RegionStartsAgainAfterItsLastHolder) {
    const std::string name = runtime_.name("again");
    {
        test::ChildProcess child("write region", {name});
        EXPECT_EQ(child.readLine(), "created");
    }
    SharedMemory region(name, kSize, kUnknown);
    ASSERT_NE(region.view(), nullptr);
    EXPECT_TRUE(region.created());
    EXPECT_EQ(region.view()[kSize - 1], kUnknown);
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

TEST_F(SharedMemoryTest, FailedMappingIsTriedAgain) {
    const std::string name = runtime_.name("other size");
    SharedMemory smaller(name, kSize, kUnknown);
    ASSERT_NE(smaller.view(), nullptr);
    SharedMemory region(name, 0x10000, kUnknown);
    EXPECT_EQ(region.view(), nullptr);
    EXPECT_EQ(region.view(), nullptr);
}

}  // namespace
}  // namespace wrenlink
