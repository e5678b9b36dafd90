// An open file descriptor with one owner. A value of this type belongs to one thread at a time.
#ifndef WRENLINK_PLATFORM_DESCRIPTOR_POSIX_H
#define WRENLINK_PLATFORM_DESCRIPTOR_POSIX_H

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace wrenlink::os {

// Closes a descriptor, or nothing for -1, and leaves errno as it was: what failed before matters.
inline void closeQuietly(int descriptor) noexcept {
    if (descriptor < 0) return;
    const int error = errno;
    ::close(descriptor);
    errno = error;
}

class Descriptor {
   public:
    // Takes the ownership of what a system call gave; -1 stands for none.
    explicit Descriptor(int descriptor = -1) noexcept : descriptor_(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        closeQuietly(std::exchange(descriptor_, other.release()));
        return *this;
    }
    ~Descriptor() { closeQuietly(descriptor_); }

    bool valid() const noexcept { return descriptor_ >= 0; }
    int get() const noexcept { return descriptor_; }
    // Gives the descriptor, or -1, to the caller.
    int release() noexcept { return std::exchange(descriptor_, -1); }

   private:
    int descriptor_;
};

// The path that leads to what a descriptor has open, whatever became of its name.
class DescriptorLink {
   public:
    explicit DescriptorLink(int descriptor) noexcept {
        std::snprintf(path_, sizeof path_, "/proc/self/fd/%d", descriptor);
    }
    const char* path() const noexcept { return path_; }

   private:
    char path_[32];
};

}  // namespace wrenlink::os

#endif
