// What the modules of a process that carry the per-thread store must do on every system. The
// system's test gives a class Module, which loads a store module for as long as it lives.
#ifndef WRENLINK_TESTS_PLATFORM_MODULE_SHARING_H
#define WRENLINK_TESTS_PLATFORM_MODULE_SHARING_H

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

#include "platform/os.h"
#include "tests/platform/store_module.h"

namespace wrenlink::test {

// How many modules share the registry; 0 when there is none.
inline std::uint32_t attachCount() {
    os::ProcessBlock registry = os::openProcessBlock("TLS Memory", 16);
    const std::uint32_t count =
        registry.existed ? *static_cast<const std::uint32_t*>(registry.view) : 0;
    os::closeProcessBlock(registry);
    return count;
}

template <class Module>
void expectOneRegistry() {
    EXPECT_EQ(attachCount(), 0U);
    StoreCounter ofA{0};
    StoreCounter ofB{0};
    const Module a(STORE_MODULE_A);
    EXPECT_TRUE(a.workedAtLoad());
    EXPECT_EQ(attachCount(), 1U);
    {
        const Module b(STORE_MODULE_B);
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

}  // namespace wrenlink::test

#endif
