// The runtime directory through which hosts find adapters: adapters/ with one socket for each, and
// objects/, where hosts share their named objects. Used from one thread.
#ifndef QUILLSIM_SERVER_RUNTIME_DIRECTORY_H
#define QUILLSIM_SERVER_RUNTIME_DIRECTORY_H

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "sim/posix/file_descriptor.h"

namespace quillsim {

struct DirectoryAccess {
    mode_t mode = 0770;  // of the directories; sockets get its read and write bits
    gid_t group = static_cast<gid_t>(-1);  // -1: leave the group as it comes
};

// All failures are thrown as std::system_error.
class RuntimeDirectory {
   public:
    // Makes the directories that are missing; those that are there keep their permissions.
    RuntimeDirectory(const std::string& path, const DirectoryAccess& access);

    // Makes adapters/NAME or the control socket and listens on it. A socket that nobody serves any
    // more is replaced; one that is served is EADDRINUSE, and a control socket that is, is another
    // simulator's folder: std::runtime_error.
    FileDescriptor listenAdapter(const std::string& name) const;
    FileDescriptor listenControl() const;
    void removeAdapter(const std::string& name) const;
    void removeControl() const;
    // Removes the sockets in adapters/ that nobody serves, so that no host takes them for adapters.
    void removeStaleAdapters() const;

    // Keeps other servers from taking over sockets at the same time, until it is closed. Waits.
    FileDescriptor lock() const;

   private:
    FileDescriptor listenAt(int directory, const std::string& name, int type) const;

    std::string path_;
    DirectoryAccess access_;
    FileDescriptor root_;
    FileDescriptor adapters_;
};

// Connects to the control socket of the server of a runtime directory. Throws std::system_error,
// and std::runtime_error when nobody serves it.
FileDescriptor connectControl(const std::string& path);

}  // namespace quillsim

#endif
