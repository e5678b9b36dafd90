// The runtime directory: where processes that use the same adapters meet. Its folder adapters/
// holds a socket for each adapter, its folder objects/ a file for each kernel object. A service
// makes the directory and decides with its permissions who may use the adapters; this code makes
// files in objects/ and nothing else, never removes or shrinks one, and refuses whatever does not
// look like its own.
//
// os::chooseNamespace() takes its place from the environment; everything else here may be called
// from any thread.
#ifndef WRENLINK_PLATFORM_RUNTIME_DIR_POSIX_H
#define WRENLINK_PLATFORM_RUNTIME_DIR_POSIX_H

#include <climits>
#include <string_view>

#include "platform/descriptor_posix.h"

namespace wrenlink::os {

// The absolute path of the runtime directory, without links, dots or a slash at its end, so that
// each directory has one path. Empty when there is none.
const char* runtimeDirectory() noexcept;

// Opens a folder of the runtime directory, "adapters" or "objects", for O_RDONLY to list it or for
// O_PATH to reach what is in it. Invalid with errno set when it is missing, or is a link.
Descriptor openRuntimeFolder(const char* name, int access) noexcept;

// Opens the file of a kernel object for reading and writing, without waiting for anything, or makes
// it, empty, for everybody who may use its folder. Links are not followed; what the file is and
// what is in it is left to the caller. Invalid with errno set when it cannot be opened.
Descriptor openObjectFile(std::string_view kernelName) noexcept;

// flock on an object's file, repeated while signals interrupt it. False with errno set: EWOULDBLOCK
// when another holds the lock and `operation` has LOCK_NB.
bool lockObjectFile(int file, int operation) noexcept;

// The file name that stands for a kernel name: the name itself, unless it cannot be one. Then its
// beginning, made printable, and a digest of the whole.
class ObjectFileName {
   public:
    explicit ObjectFileName(std::string_view kernelName) noexcept;
    const char* text() const noexcept { return text_; }

   private:
    char text_[NAME_MAX + 1];
};

}  // namespace wrenlink::os

#endif
