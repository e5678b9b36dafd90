#include "platform/named_mutex.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/test_runtime.h"

namespace wrenlink {
namespace {

class NamedMutexTest : public testing::Test {
   protected:
    NamedMutexTest() { os::chooseNamespace(); }

    // Whether somebody else could take the mutex now.
    bool isFree(const std::string& name) {
        bool acquired = false;
        std::thread other([&] { acquired = NamedMutex(name).lock(0); });
        other.join();
        return acquired;
    }

    test::TestRuntime runtime_;
};

TEST(MutexKernelName, ReplacesFiveCharacters) {
    for (const auto& [name, kernelName] :
         {std::pair("quilldelays100", "kvs_mutex_quilldelays100"),
          {"", "kvs_mutex_"},
          {R"(a.b\c/d"e*f)", "kvs_mutex_a-b-c-d-e-f"},
          {R"(\\?\usb#vid_1.0:{7a})", "kvs_mutex_--?-usb#vid_1-0:{7a}"}})
        EXPECT_EQ(mutexKernelName(name), kernelName);
}

TEST_F(NamedMutexTest, CountsNestedLocks) {
    // Longer than the room that usual names need.
    const std::string name = runtime_.name("nested") + std::string(1000, 'n');
    {
        NamedMutex mutex(name);
        EXPECT_TRUE(mutex.lock());
        EXPECT_TRUE(mutex.lock(0));
        mutex.unlock();
        EXPECT_FALSE(isFree(name));
        mutex.unlock();
        EXPECT_TRUE(isFree(name));
        mutex.unlock();
        EXPECT_TRUE(mutex.lock());
        EXPECT_FALSE(isFree(name)) << "the unlock without a lock counts for nothing";
        EXPECT_TRUE(mutex.lock());
    }
    EXPECT_TRUE(isFree(name)) << "destruction gives every hold back";
}

}  // namespace
}  // namespace wrenlink
