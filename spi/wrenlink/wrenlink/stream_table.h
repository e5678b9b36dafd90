// The registry of open streams: identifiers, counted references and the legacy stream.
//
// One lock guards everything here, every reference count included. It is held inside one operation
// only, never while an operation on a stream runs; but a stream whose last reference goes is
// destroyed under it, which takes the adapter-layer lock inside it.
#ifndef WRENLINK_WRENLINK_STREAM_TABLE_H
#define WRENLINK_WRENLINK_STREAM_TABLE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <utility>

#include "platform/local_lock.h"
#include "wrenlink/spifns.h"
#include "wrenlink/stream_data.h"

namespace wrenlink {

class CUsbStreamTable;

// A counted reference to a stream, or none; gives it back at its end.
class CUsbStreamRef {
   public:
    CUsbStreamRef() = default;
    CUsbStreamRef(CUsbStreamTable& table, CUsbStreamData* stream)
        : table_(&table), stream_(stream) {}
    CUsbStreamRef(CUsbStreamRef&& other) noexcept
        : table_(other.table_), stream_(std::exchange(other.stream_, nullptr)) {}
    CUsbStreamRef& operator=(CUsbStreamRef&&) = delete;
    ~CUsbStreamRef();

    explicit operator bool() const { return stream_ != nullptr; }
    CUsbStreamData& operator*() const { return *stream_; }
    CUsbStreamData* operator->() const { return stream_; }

   private:
    CUsbStreamTable* table_ = nullptr;
    CUsbStreamData* stream_ = nullptr;
};

// One exists while the library is loaded.
class CUsbStreamTable {
   public:
    CUsbStreamTable();
    CUsbStreamTable(const CUsbStreamTable&) = delete;
    CUsbStreamTable& operator=(const CUsbStreamTable&) = delete;
    // Streams that are still open are left as they are.
    ~CUsbStreamTable();

    // Stores a stream, which the table then owns, in the first free slot after the one assigned
    // last, and its identifier in *id. False, changing nothing, when 32 are open. Throws
    // std::bad_alloc.
    bool addStream(std::uint32_t* id, CUsbStreamData* stream);
    // A reference to the stream of that identifier; empty when there is none.
    CUsbStreamRef getStream(std::uint32_t id);
    // A reference to the legacy stream; empty when there is none.
    CUsbStreamRef getLegacyStream();
    // Makes a stored stream the legacy stream; false when another one is. True, and nothing
    // happens, when the stream was taken out meanwhile.
    bool assignLegacyStream(CUsbStreamData* stream);
    // Gives a reference back; null is allowed.
    void releaseStream(CUsbStreamData* stream);
    // Takes a stream out of the table, and ends its being the legacy stream. References to it stay
    // good.
    void removeStream(std::uint32_t id);
    // The number of open streams, read without the lock.
    std::uint32_t countStreams() const { return count_.load(std::memory_order_relaxed); }

   private:
    using Slots = std::array<CUsbStreamData*, SPIFNS_MAX_STREAMS>;

    CUsbStreamRef reference(std::uint32_t id);
    void release(CUsbStreamData* stream);

    LocalLock lock_;
    Slots* slots_ = nullptr;    // owned; exists while a stream is open
    std::uint32_t cursor_ = 0;  // the identifier assigned last
    std::atomic<std::uint32_t> count_ = 0;
    bool legacyAssigned_ = false;
    std::uint32_t legacyId_ = 0;
};

inline CUsbStreamRef::~CUsbStreamRef() {
    if (stream_ != nullptr) table_->releaseStream(stream_);
}

// The process's table.
CUsbStreamTable& streamTable();

}  // namespace wrenlink

#endif
