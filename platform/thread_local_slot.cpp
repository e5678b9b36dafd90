#include "platform/thread_local_slot.h"

#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

namespace wrenlink {

// A thread's value in a slot, in the thread's list of nodes and in the slot's. The links point at
// whatever points at the node, so that it leaves either list without a walk.
struct ValueNode {
    SlotRecord* slot;
    void* value;
    ValueNode* threadNext;
    ValueNode** threadLink;
    ValueNode* slotNext;
    ValueNode** slotLink;
};

namespace {

struct ThreadRecord {
    ValueNode* nodes;
    ThreadRecord* next;
    ThreadRecord* previous;
};

// Modules of different builds meet in these records.
struct ThreadLocalRegistry {
    std::uint32_t attachCount;    // modules
    os::ThreadIndex recordIndex;  // under it each thread keeps its record
    ThreadRecord* records;
};
static_assert(sizeof(ThreadLocalRegistry) == 16 && offsetof(ThreadLocalRegistry, records) == 8);
static_assert(sizeof(SlotRecord) == 24 && offsetof(SlotRecord, nodes) == 16);
static_assert(sizeof(ThreadRecord) == 24 && sizeof(ValueNode) == 48);

// This module's hold of the registry.
struct Attachment {
    std::atomic<std::uint32_t> slotCount;
    os::ProcessBlock block;
    ThreadLocalRegistry* registry;  // null while not attached
};
constinit Attachment attachment{};

constinit std::atomic<os::ProcessMutex*> storeMutex{nullptr};

// The store's mutex, opened if need be; null when it cannot be had.
os::ProcessMutex* openStoreMutex() noexcept {
    os::ProcessMutex* current = storeMutex.load(std::memory_order_acquire);
    if (current != nullptr) return current;
    os::ProcessMutex* const opened = os::openProcessMutex("TLS Mutex");
    if (opened == nullptr) return nullptr;
    if (storeMutex.compare_exchange_strong(current, opened)) return opened;
    os::closeProcessMutex(opened);
    return current;
}

// Holds the store's mutex. When it cannot be had the work is done without: otherwise every error
// would be lost, and not only one that two threads happen to store at the same moment.
class StoreLock {
   public:
    StoreLock() noexcept : mutex_(openStoreMutex()) {
        if (mutex_ != nullptr) os::lockProcessMutex(mutex_);
    }
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;
    ~StoreLock() {
        if (mutex_ != nullptr) os::unlockProcessMutex(mutex_);
    }

   private:
    os::ProcessMutex* const mutex_;
};

// ---- Under the store's mutex -------------------------------------------------------------------

bool attach() noexcept {
    if (attachment.registry != nullptr) return true;
    os::ProcessBlock block = os::openProcessBlock("TLS Memory", sizeof(ThreadLocalRegistry));
    if (block.view == nullptr) return false;
    auto* const registry = static_cast<ThreadLocalRegistry*>(block.view);
    if (!block.existed && !os::makeThreadIndex(registry->recordIndex)) {
        os::closeProcessBlock(block);
        return false;
    }
    ++registry->attachCount;
    attachment.block = block;
    attachment.registry = registry;
    return true;
}

void detach() noexcept {
    ThreadLocalRegistry* const registry = std::exchange(attachment.registry, nullptr);
    if (registry == nullptr) return;
    if (--registry->attachCount == 0) {
        while (ThreadRecord* const record = registry->records) {
            registry->records = record->next;
            os::freeRecord(record);
        }
        os::freeThreadIndex(registry->recordIndex);
    }
    os::closeProcessBlock(attachment.block);
}

// The calling thread's record; null when it has none.
ThreadRecord* findRecord() noexcept {
    if (attachment.registry == nullptr) return nullptr;
    return static_cast<ThreadRecord*>(os::threadValue(attachment.registry->recordIndex));
}

ThreadRecord* findOrMakeRecord() noexcept {
    if (!attach()) return nullptr;
    if (ThreadRecord* const found = findRecord()) return found;
    void* const memory = os::allocateRecord(sizeof(ThreadRecord));
    if (memory == nullptr) return nullptr;
    ThreadLocalRegistry& registry = *attachment.registry;
    if (!os::setThreadValue(registry.recordIndex, memory)) {
        os::freeRecord(memory);
        return nullptr;
    }
    auto* const record = new (memory) ThreadRecord{nullptr, registry.records, nullptr};
    if (record->next != nullptr) record->next->previous = record;
    registry.records = record;
    return record;
}

void dropRecord(ThreadRecord* record) noexcept {
    ThreadLocalRegistry& registry = *attachment.registry;
    (record->previous != nullptr ? record->previous->next : registry.records) = record->next;
    if (record->next != nullptr) record->next->previous = record->previous;
    os::setThreadValue(registry.recordIndex, nullptr);
    os::freeRecord(record);
}

bool addNode(SlotRecord& slot, void* value) noexcept {
    ThreadRecord* const thread = findOrMakeRecord();
    if (thread == nullptr) return false;
    void* const memory = os::allocateRecord(sizeof(ValueNode));
    if (memory == nullptr) return false;
    if (!os::setThreadValue(slot.index, memory)) {
        os::freeRecord(memory);
        return false;
    }
    auto* const node = new (memory)
        ValueNode{&slot, value, thread->nodes, &thread->nodes, slot.nodes, &slot.nodes};
    if (node->threadNext != nullptr) node->threadNext->threadLink = &node->threadNext;
    if (node->slotNext != nullptr) node->slotNext->slotLink = &node->slotNext;
    thread->nodes = slot.nodes = node;
    return true;
}

void unlinkNode(const ValueNode& node) noexcept {
    *node.threadLink = node.threadNext;
    if (node.threadNext != nullptr) node.threadNext->threadLink = node.threadLink;
    *node.slotLink = node.slotNext;
    if (node.slotNext != nullptr) node.slotNext->slotLink = node.slotLink;
}

// ---- Without it --------------------------------------------------------------------------------

// Takes the first node off a list, and off its other list; null when the list is empty.
ValueNode* takeFirst(ValueNode* const& head) noexcept {
    const StoreLock lock;
    ValueNode* const node = head;
    if (node != nullptr) unlinkNode(*node);
    return node;
}

void discard(ValueNode* node) noexcept {
    if (node->slot->cleanup != nullptr && node->value != nullptr) {
        try {
            node->slot->cleanup(node->value);
        } catch (...) {
            // There is nobody to tell.
        }
    }
    os::freeRecord(node);
}

}  // namespace

ThreadLocalSlot::ThreadLocalSlot(Cleanup cleanup) noexcept
    : record_{0, cleanup, nullptr}, usable_(os::makeThreadIndex(record_.index)) {
    ++attachment.slotCount;
}

ThreadLocalSlot::~ThreadLocalSlot() {
    while (ValueNode* const node = takeFirst(record_.nodes)) discard(node);
    if (usable_) os::freeThreadIndex(record_.index);
    if (--attachment.slotCount != 0) return;
    {
        const StoreLock lock;
        detach();
    }
    closeThreadStoreMutex();
}

ValueNode* ThreadLocalSlot::threadNode() const noexcept {
    return usable_ ? static_cast<ValueNode*>(os::threadValue(record_.index)) : nullptr;
}

void* ThreadLocalSlot::get() const noexcept {
    const ValueNode* const node = threadNode();
    return node == nullptr ? nullptr : node->value;
}

bool ThreadLocalSlot::set(void* value) noexcept {
    if (!usable_) return false;
    if (ValueNode* const node = threadNode()) {
        node->value = value;
        return true;
    }
    const StoreLock lock;
    return addNode(record_, value);
}

void ThreadLocalSlot::threadEnd() noexcept {
    ThreadRecord* record = nullptr;
    {
        const StoreLock lock;
        record = findRecord();
    }
    if (record == nullptr) return;
    while (ValueNode* const node = takeFirst(record->nodes)) {
        os::setThreadValue(node->slot->index, nullptr);
        discard(node);
    }
    const StoreLock lock;
    dropRecord(record);
}

void closeThreadStoreMutex() noexcept {
    os::ProcessMutex* const mutex = storeMutex.exchange(nullptr);
    if (mutex != nullptr) os::closeProcessMutex(mutex);
}

}  // namespace wrenlink
