#include "platform/named_mutex.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace wrenlink {
namespace {

// Each exchange asks for every character of a device's path: this calls nothing.
constexpr bool isReplaced(char character) {
    switch (character) {
        case '.':
        case '\\':
        case '/':
        case '"':
        case '*':
            return true;
        default:
            return false;
    }
}

// Names of usual lengths take no memory from the heap: each exchange makes one.
os::KernelMutex openMutex(std::string_view name) {
    std::array<std::byte, 512> room;
    std::pmr::monotonic_buffer_resource memory(room.data(), room.size(),
                                               std::pmr::new_delete_resource());
    return os::KernelMutex(mutexKernelName(name, &memory));
}

}  // namespace

std::pmr::string mutexKernelName(std::string_view name, std::pmr::memory_resource* memory) {
    constexpr std::string_view kPrefix = "kvs_mutex_";
    std::pmr::string kernelName(memory);
    kernelName.reserve(kPrefix.size() + name.size());
    kernelName.append(kPrefix).append(name);
    std::replace_if(kernelName.begin(), kernelName.end(), isReplaced, '-');
    return kernelName;
}

NamedMutex::NamedMutex(std::string_view name) : mutex_(openMutex(name)) {}

NamedMutex::~NamedMutex() {
    while (holds_ > 0) unlock(Unlock::forced);
}

bool NamedMutex::lock(std::uint32_t milliseconds) noexcept {
    if (holds_ == 0) {
        const os::WaitResult result = mutex_.wait(milliseconds);
        if (result != os::WaitResult::acquired && result != os::WaitResult::abandoned) return false;
    }
    ++holds_;
    return true;
}

void NamedMutex::unlock() noexcept { unlock(Unlock::normal); }

void NamedMutex::unlock(Unlock how) noexcept {
    if (holds_ == 0 || --holds_ > 0) return;
    // What the system refuses to take back stays a hold, for the destruction to try again.
    if (!mutex_.release() && how == Unlock::normal) holds_ = 1;
}

}  // namespace wrenlink
