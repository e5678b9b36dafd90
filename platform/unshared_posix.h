// Descriptors that a process does not share with the children it makes by fork. A child has copies
// of them, and a lock or a connection lasts as long as any copy; so the child closes its copies
// before anything else of it runs, and descriptorOf() gives -1 for them from then on. Children that
// start another program need no such care: the descriptors close with that.
//
// Everything here may be called from any thread. A fork waits while a descriptor is being opened or
// closed, so that none is missed, but not for ever.
#ifndef WRENLINK_PLATFORM_UNSHARED_POSIX_H
#define WRENLINK_PLATFORM_UNSHARED_POSIX_H

#include <atomic>
#include <cstdint>

#include "platform/descriptor_posix.h"
#include "platform/os.h"

namespace wrenlink::os {

// Has handlers run around each fork, from the first call with this flag on; the loader takes them
// away with the module. False with errno set when there is no memory.
bool handleForks(std::atomic<bool>& handled, void (*before)(), void (*inParent)(),
                 void (*inChild)()) noexcept;

// Looks after the descriptors at forks, from the first call on. False as above.
bool watchForks() noexcept;

// No fork happens while one of these lives.
class ForkPause {
   public:
    ForkPause() noexcept;
    ForkPause(const ForkPause&) = delete;
    ForkPause& operator=(const ForkPause&) = delete;
    ~ForkPause();

   private:
    const std::uint32_t generation_;
};

// Makes a handle of what open() gives, a Descriptor; kNoHandle with errno set when that is invalid
// or there are too many.
NativeHandle enlist(Descriptor descriptor) noexcept;
template <class Open>
NativeHandle openUnshared(Open open) noexcept {
    const ForkPause pause;
    return enlist(open());
}

// The descriptor of a handle; -1 for none, and for one that stayed with a parent.
int descriptorOf(NativeHandle handle) noexcept;

// Closes what a handle stands for, if anything; errno stays as it was.
void closeUnshared(NativeHandle& handle) noexcept;

}  // namespace wrenlink::os

#endif
