#include "platform/thread_local_slot.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <thread>

#include "platform/os.h"

namespace wrenlink {
namespace {

// How often each value was handed to the cleanup function.
std::map<void*, int> discarded;

void countDiscard(void* value) { ++discarded[value]; }

void discardAndThrow(void* value) {
    countDiscard(value);
    throw std::runtime_error("cleanup");
}

class ThreadLocalSlotTest : public testing::Test {
   protected:
    ThreadLocalSlotTest() { discarded.clear(); }

    int values_[4] = {};
};

TEST_F(ThreadLocalSlotTest, DestructionDiscardsTheValuesOfAllThreads) {
    auto slot = std::make_unique<ThreadLocalSlot>(discardAndThrow);  // which is ignored
    for (int& value : values_) std::thread([&] { slot->set(&value); }).join();
    EXPECT_TRUE(discarded.empty());
    slot.reset();
    for (int& value : values_) EXPECT_EQ(discarded[&value], 1);
}

TEST_F(ThreadLocalSlotTest, ReplacedAndNullValuesAreNotDiscarded) {
    {
        ThreadLocalSlot slot(countDiscard);
        slot.set(&values_[0]);
        slot.set(&values_[1]);
        std::thread([&] {
            slot.set(&values_[2]);
            slot.set(nullptr);
            EXPECT_EQ(slot.get(), nullptr);
        }).join();
    }
    EXPECT_EQ(discarded, (std::map<void*, int>{{&values_[1], 1}}));
}

TEST_F(ThreadLocalSlotTest, ThreadEndDiscardsOneThreadsValuesOfAllSlots) {
    ThreadLocalSlot first(countDiscard);
    ThreadLocalSlot second(countDiscard);
    ThreadLocalSlot::threadEnd();
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_TRUE(first.set(&values_[0]));
    std::thread([&] {
        EXPECT_EQ(first.get(), nullptr);
        first.set(&values_[1]);
        second.set(&values_[2]);
        ThreadLocalSlot::threadEnd();
        EXPECT_EQ(first.get(), nullptr);
        first.set(&values_[3]);
    }).join();
    EXPECT_EQ(discarded, (std::map<void*, int>{{&values_[1], 1}, {&values_[2], 1}}));
    os::setLastError(7);
    EXPECT_EQ(first.get(), &values_[0]);
    EXPECT_EQ(os::lastError(), 7U);
}

TEST_F(ThreadLocalSlotTest, SlotsOfAThreadLeaveInAnyOrder) {
    auto first = std::make_unique<ThreadLocalSlot>(countDiscard);
    auto second = std::make_unique<ThreadLocalSlot>(countDiscard);
    auto third = std::make_unique<ThreadLocalSlot>(countDiscard);
    first->set(&values_[0]);
    second->set(&values_[1]);
    third->set(&values_[2]);
    second.reset();
    EXPECT_EQ(discarded, (std::map<void*, int>{{&values_[1], 1}}));
    first.reset();
    EXPECT_EQ(third->get(), &values_[2]);
    ThreadLocalSlot::threadEnd();
    EXPECT_EQ(discarded.size(), 3U);
}

}  // namespace
}  // namespace wrenlink
