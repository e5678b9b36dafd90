// Several modules of one process that each carry the per-thread store.
#include <gtest/gtest.h>

#include <thread>

#include "tests/platform/store_module.h"
#include "tests/support/store_registry.h"

namespace wrenlink::test {
namespace {

TEST(StoreModules, ShareOneRegistry) {
    EXPECT_EQ(attachCount(), 0U);
    StoreCounter ofA{0};
    StoreCounter ofB{0};
    const StoreModule a(STORE_MODULE_A);
    EXPECT_TRUE(a.workedAtLoad());
    EXPECT_EQ(attachCount(), 1U);
    {
        const StoreModule b(STORE_MODULE_B);
        EXPECT_EQ(attachCount(), 2U);
        std::thread([&] {
            a.set(&ofA);
            b.set(&ofB);
            EXPECT_EQ(a.get(), &ofA);
            b.threadEnd();
            EXPECT_EQ(a.get(), nullptr);
        }).join();
        EXPECT_EQ(ofA, 1) << "one module's thread end discards the values of all";
        EXPECT_EQ(ofB, 1);
        b.set(&ofB);
    }
    EXPECT_EQ(ofB, 2) << "unloading discards what is left";
    EXPECT_EQ(attachCount(), 1U);
    EXPECT_TRUE(a.workedAtLoad());
}

TEST(StoreModules, LoadAndWorkInManyThreadsAtOnce) {
    StoreCounter discarded{0};
    const auto work = [&](const char* path) {
        for (int round = 0; round < 50; ++round) {
            {
                const StoreModule module(path);
                std::thread([&] { module.set(&discarded); }).join();
            }
            EXPECT_FALSE(isLoaded(path));
        }
    };
    std::thread other([&] { work(STORE_MODULE_B); });
    work(STORE_MODULE_A);
    other.join();
    EXPECT_EQ(discarded, 100);
    EXPECT_TRUE(storeIsGone());
}

}  // namespace
}  // namespace wrenlink::test
