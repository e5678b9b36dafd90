#include "sim/posix/runtime_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace quillsim {
namespace {

constexpr const char* kControlName = "quillsim.control";

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

// Names a file by its directory's descriptor: a socket address has room for 107 bytes, fewer than a
// path may have.
sockaddr_un addressIn(int directory, const std::string& name) {
    const std::string path = "/proc/self/fd/" + std::to_string(directory) + "/" + name;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) fail(ENAMETOOLONG, name);
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

// 0, or the error with which connecting failed.
int connectIn(const FileDescriptor& socket, int directory, const std::string& name) {
    const sockaddr_un address = addressIn(directory, name);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    return ::connect(socket.get(), generic, sizeof address) == 0 ? 0 : errno;
}

// Whether a path is a socket that refuses connections because its server is gone.
bool isStale(int directory, const std::string& name) {
    struct stat status {};
    const bool found = ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (!found || !S_ISSOCK(status.st_mode)) return false;
    const FileDescriptor probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    int error = connectIn(probe, directory, name);
    if (error == EPROTOTYPE) {
        const FileDescriptor stream(
            ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        error = connectIn(stream, directory, name);
    }
    return error == ECONNREFUSED;
}

FileDescriptor openDirectory(int parent, const std::string& name) {
    FileDescriptor fd(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) fail(errno, name);
    return fd;
}

FileDescriptor makeDirectory(int parent, const std::string& name, const DirectoryAccess& access,
                             mode_t extraBits) {
    const bool made = ::mkdirat(parent, name.c_str(), 0700) == 0;
    if (!made && errno != EEXIST) fail(errno, name);
    FileDescriptor fd = openDirectory(parent, name);
    if (!made) return fd;
    // The owner first: changing it drops the set-group-ID bit.
    if (::fchown(fd.get(), static_cast<uid_t>(-1), access.group) != 0) fail(errno, name);
    if (::fchmod(fd.get(), access.mode | extraBits) != 0) fail(errno, name);
    return fd;
}

std::vector<std::string> namesIn(int directory) {
    std::vector<std::string> names;
    const int copy = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::fdopendir(copy), &::closedir);
    if (entries == nullptr) fail(errno, "adapters");
    while (const dirent* entry = ::readdir(entries.get())) names.emplace_back(entry->d_name);
    return names;
}

}  // namespace

RuntimeDirectory::RuntimeDirectory(const std::string& path, const DirectoryAccess& access)
    : path_(path), access_(access) {
    std::filesystem::path root = std::filesystem::path(path).lexically_normal();
    if (!root.has_filename()) root = root.parent_path();
    std::filesystem::create_directories(root.parent_path());
    root_ = makeDirectory(AT_FDCWD, root, access, 0);
    adapters_ = makeDirectory(root_.get(), "adapters", access, 0);
    // New objects belong to the directory's group, whichever member makes them.
    makeDirectory(root_.get(), "objects", access, S_ISGID);
}

FileDescriptor RuntimeDirectory::listenAt(int directory, const std::string& name, int type) const {
    if (isStale(directory, name)) ::unlinkat(directory, name.c_str(), 0);
    FileDescriptor fd(::socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) fail(errno, name);
    const sockaddr_un address = addressIn(directory, name);
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail(errno, name);
    }
    const bool allowed =
        ::fchownat(directory, name.c_str(), static_cast<uid_t>(-1), access_.group, 0) == 0 &&
        ::fchmodat(directory, name.c_str(), access_.mode & 0666, 0) == 0;
    // Listening only now keeps everybody out until the permissions are right.
    if (!allowed || ::listen(fd.get(), SOMAXCONN) != 0) {
        const int error = errno;
        ::unlinkat(directory, name.c_str(), 0);
        fail(error, name);
    }
    return fd;
}

FileDescriptor RuntimeDirectory::listenAdapter(const std::string& name) const {
    return listenAt(adapters_.get(), name, SOCK_SEQPACKET);
}

FileDescriptor RuntimeDirectory::listenControl() const {
    try {
        return listenAt(root_.get(), kControlName, SOCK_STREAM);
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::address_in_use) throw;
        throw std::runtime_error(path_ + " is already served by another simulator");
    }
}

void RuntimeDirectory::removeAdapter(const std::string& name) const {
    ::unlinkat(adapters_.get(), name.c_str(), 0);
}

void RuntimeDirectory::removeControl() const { ::unlinkat(root_.get(), kControlName, 0); }

void RuntimeDirectory::removeStaleAdapters() const {
    for (const std::string& name : namesIn(adapters_.get())) {
        if (isStale(adapters_.get(), name)) removeAdapter(name);
    }
}

FileDescriptor RuntimeDirectory::lock() const {
    FileDescriptor fd = openDirectory(adapters_.get(), ".");
    if (::flock(fd.get(), LOCK_EX) != 0) fail(errno, "adapters");
    return fd;
}

FileDescriptor connectControl(const std::string& path) {
    FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const FileDescriptor root(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int error = fd && root ? connectIn(fd, root.get(), kControlName) : errno;
    if (error == ENOENT || error == ECONNREFUSED)
        throw std::runtime_error("no simulator serves " + path);
    if (error != 0) fail(error, path);
    return fd;
}

}  // namespace quillsim
