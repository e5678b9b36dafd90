// Loading the library, using it and unloading it, again and again in one process.
#include <gtest/gtest.h>

#include <thread>

#include "platform/thread_local_slot.h"
#include "tests/exports/loaded_library.h"
#include "tests/support/child_process.h"
#include "tests/support/simulator.h"
#include "tests/support/store_registry.h"

namespace wrenlink::test {
namespace {

// A stream of a library that has just started, with the adapter selected and known.
std::uint32_t openStream(const LoadedLibrary& library) {
    std::uint32_t id = 0;
    EXPECT_EQ(library.init(&id), 0);
    EXPECT_EQ(id, 1U);
    std::uint16_t words[4] = {};
    SpiAction actions[] = {{SPIFNS_SETVAR, 0, {.variable = {"SPIPORT", "0", nullptr}}},
                           {SPIFNS_READ, 0, {.memory = {0, 0, 4, 0, words}}}};
    EXPECT_EQ(library.run(id, actions, 2), 0);
    EXPECT_EQ(words[3], 0xABCD);
    return id;
}

// Leaves a last error on a thread that ends and on this one.
void fail(const LoadedLibrary& library) {
    const auto failOnce = [&] {
        EXPECT_EQ(library.run(SPIFNS_NO_STREAM, nullptr, 0), 1);
        const char* text = nullptr;
        EXPECT_EQ(library.lastError(nullptr, &text), 262);
        EXPECT_STREQ(text, "Invalid stream");
    };
    std::thread(failOnce).join();
    failOnce();
}

class LoadUnload : public testing::Test {
   protected:
    LoadUnload() {
        simulator_.control("poke 0 3 0xabcd");
        std::filesystem::copy_file(original_, copy_ += original_.extension());
    }

    Simulator simulator_;
    const std::filesystem::path original_ = WRENLINK_LIBRARY;
    std::filesystem::path copy_ = simulator_.runtime().path() / "copy";
};

TEST_F(LoadUnload, LeavesNothingBehind) {
    constexpr std::size_t kWarmUp = 10;
    constexpr std::size_t kRounds = 90;
    Holdings before{};
    for (std::size_t i = 0; i < kWarmUp + kRounds; ++i) {
        if (i == kWarmUp) before = takeStock();
        {
            const LoadedLibrary library;
            library.close(openStream(library));
            fail(library);
        }
        ASSERT_FALSE(isLoaded(WRENLINK_LIBRARY));
        ASSERT_TRUE(storeIsGone());
    }
    const Holdings after = takeStock();
    EXPECT_EQ(after.threadIndex, before.threadIndex);
    // Less than the least that a leak in each round would come to.
    EXPECT_LT(after.handles, before.handles + kRounds);
    EXPECT_LT(after.mappings, before.mappings + kRounds);
    EXPECT_LT(after.heapBytes, before.heapBytes + kRounds * 16);
}

// A host may unload the library without closing its streams. They are lost then, so that a process
// of its own does it, which is killed before anybody looks for leaks.
int unloadWithStreams(const Arguments&) {
    { fail(LoadedLibrary()); }  // what the system makes once
    const Holdings before = takeStock();
    {
        const LoadedLibrary library;
        openStream(library);
        library.find<decltype(spifns_init)>("spifns_init")();
        fail(library);
    }
    const bool gone = !isLoaded(WRENLINK_LIBRARY) && storeIsGone() &&
                      takeStock().threadIndex == before.threadIndex;
    tellParent(gone && !testing::Test::HasFailure() ? "gone" : "stays");
    awaitParent();
    return 0;
}
const ChildRole kUnloadWithStreams("unload-with-streams", unloadWithStreams);

TEST_F(LoadUnload, PermitsOpenStreams) {
    EXPECT_EQ(ChildProcess("unload-with-streams").readLine(), "gone");
}

TEST_F(LoadUnload, LetsModulesShareTheStore) {
    {
        const LoadedLibrary library;
        fail(library);
        {
            const LoadedLibrary second(copy_.string());
            second.close(openStream(second));
            EXPECT_EQ(second.lastError(nullptr, nullptr), 0);
            fail(second);
            EXPECT_EQ(attachCount(), 2U);
        }
        EXPECT_EQ(attachCount(), 1U);
        os::ProcessBlock made = os::openProcessBlock("made later", 16);
        os::ProcessBlock found = os::openProcessBlock("made later", 16);
        EXPECT_TRUE(found.existed) << "whichever module made its own blocks first";
        os::closeProcessBlock(found);
        os::closeProcessBlock(made);
        EXPECT_EQ(library.lastError(nullptr, nullptr), 262);
        ThreadLocalSlot own(nullptr);
        own.set(&own);
        ThreadLocalSlot::threadEnd();
        EXPECT_EQ(library.lastError(nullptr, nullptr), 0) << "values of all modules are discarded";
    }
    EXPECT_TRUE(storeIsGone());
}

TEST_F(LoadUnload, WorksInTwoThreadsAtOnce) {
    const auto work = [](const std::string& path) {
        for (int round = 0; round < 50; ++round) {
            fail(LoadedLibrary(path));
            EXPECT_FALSE(isLoaded(path));
        }
    };
    std::thread other([&] { work(copy_.string()); });
    work(original_.string());
    other.join();
    EXPECT_TRUE(storeIsGone());
}

}  // namespace
}  // namespace wrenlink::test
