#include "platform/shared_memory.h"

#include <algorithm>

namespace wrenlink {
namespace {

constexpr std::string_view kPrefix = "kvs_shm_";

}  // namespace

SharedMemory::SharedMemory(std::string_view regionName, std::size_t size, std::byte fill)
    : kernelName_(std::string(kPrefix).append(regionName)), size_(size), fill_(fill) {}

SharedMemory::~SharedMemory() {
    std::byte* const mapped = view_.load(std::memory_order_relaxed);
    if (mapped != nullptr) os::FileMapping::unmap(mapped, size_);
    // Before mutex_ ends: a release that the system refused is tried again then, and whoever gets
    // the mutex must not find this mapping.
    mapping_.close();
}

std::byte* SharedMemory::firstView() noexcept {
    const LocalLockGuard local(localLock_);
    // Another thread may have been faster.
    std::byte* const mapped = view_.load(std::memory_order_relaxed);
    if (mapped != nullptr && mapping_.valid()) return mapped;
    mutex_.emplace(std::string_view(kernelName_).substr(kPrefix.size()));
    const NamedMutexGuard creating(*mutex_);
    mapRegion();
    return mapping_.valid() ? view_.load(std::memory_order_relaxed) : nullptr;
}

void SharedMemory::mapRegion() noexcept {
    bool existed = false;
    mapping_ = os::FileMapping::open(kernelName_, size_, existed);
    created_.store(!existed, std::memory_order_relaxed);
    if (!mapping_.valid()) return;
    auto* const mapped = static_cast<std::byte*>(mapping_.map(size_));
    if (mapped == nullptr) {
        mapping_.close();
        return;
    }
    if (!existed) std::fill_n(mapped, size_, fill_);
    std::byte* const former = view_.exchange(mapped, std::memory_order_release);
    if (former != nullptr) os::FileMapping::unmap(former, size_);
}

}  // namespace wrenlink
