// What all processes that use one adapter know of it: the records in its two shared regions. A
// format shared between processes: little-endian 16-bit fields, each read and written whole,
// without a lock.
#ifndef WRENLINK_QUILL_ADAPTER_CACHES_H
#define WRENLINK_QUILL_ADAPTER_CACHES_H

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/shared_memory.h"

namespace wrenlink {

static_assert(std::endian::native == std::endian::little, "shared records are little-endian");

inline constexpr std::uint16_t kUnknown = 0xFFFF;
inline constexpr std::uint32_t kBothUnknown = 0xFFFFFFFF;
// Fills a new region, so that all its fields are unknown.
inline constexpr std::byte kUnknownByte{0xFF};

// The delay that the adapter was last set to or last reported.
struct DelayCache {
    static constexpr const char* kRegionName = "quilldelays%lu";
    std::uint16_t delay;
};
static_assert(sizeof(DelayCache) == 2);

// The command bits that the adapter was last given.
union CmdBitsCache {
    static constexpr const char* kRegionName = "quillcmdbits%lu";
    std::uint16_t half[2];  // read bits, write bits
    std::uint32_t both;
};
static_assert(sizeof(CmdBitsCache) == 4);

template <class Field>
Field loadField(Field& field) {
    return std::atomic_ref(field).load(std::memory_order_relaxed);
}

template <class Field>
void storeField(Field& field, Field value) {
    std::atomic_ref(field).store(value, std::memory_order_relaxed);
}

// The record in a region: null without a region, or when it cannot be mapped.
template <class Cache>
Cache* cacheIn(const std::unique_ptr<SharedMemory>& region) {
    return region == nullptr ? nullptr : reinterpret_cast<Cache*>(region->view());
}

}  // namespace wrenlink

#endif
