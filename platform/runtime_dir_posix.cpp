#include "platform/runtime_dir_posix.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <thread>
#include <utility>

#include "platform/os.h"
#include "platform/unshared_posix.h"

namespace wrenlink::os {
namespace {

constexpr char kDefaultDirectory[] = "/run/wrenlink";

// Opening an object must not wait (a pipe), gain a terminal, reach children or follow a link.
constexpr int kObjectFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr int kOpenAttempts = 10;

// The bytes of a kernel name that its file name keeps when it cannot be the name itself.
constexpr std::size_t kKeptBytes = 200;

// The directory's canonical path, or empty.
constinit char place[PATH_MAX] = "";

// Null for a relative path: it would lead elsewhere once the host changes its current directory.
const char* configuredDirectory() noexcept {
    const char* directory = ::secure_getenv("WRENLINK_RUNTIME_DIR");
    if (directory == nullptr || *directory == '\0') return kDefaultDirectory;
    return *directory == '/' ? directory : nullptr;
}

// Writes the path of what is reached by these names from the runtime directory on. False with errno
// set when it has none.
bool writePath(char (&path)[PATH_MAX], std::initializer_list<std::string_view> names) noexcept {
    if (*place == '\0') {
        errno = ENOENT;
        return false;
    }
    char* end = path;
    const auto append = [&](std::string_view piece) {
        if (piece.size() >= static_cast<std::size_t>(std::end(path) - end)) return false;
        end = std::copy(piece.begin(), piece.end(), end);
        return true;
    };
    bool fits = append(place);
    for (const std::string_view name : names) fits = fits && append("/") && append(name);
    *end = '\0';
    if (!fits) errno = ENAMETOOLONG;
    return fits;
}

bool isFileName(std::string_view name) noexcept {
    return !name.empty() && name.size() <= NAME_MAX && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

std::string_view escaped(const char& character) noexcept {
    switch (character) {
        case '/':
            return "%2F";
        case '\0':
            return "%00";
        default:
            return {&character, 1};
    }
}

// FNV-1a, 64 bits.
std::uint64_t digest(std::string_view text) noexcept {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const char character : text) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001B3;
    }
    return hash;
}

// Opens an object's file in one step, where the system has such a step and no link is on the whole
// way.
Descriptor openDirectly(const char* name) noexcept {
    static constinit std::atomic<bool> canDoSo{true};
    char path[PATH_MAX];
    if (!canDoSo.load(std::memory_order_relaxed) || !writePath(path, {"objects", name}))
        return Descriptor();
    open_how how{};
    how.flags = kObjectFlags;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long file = ::syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how);
    if (file < 0 && errno == ENOSYS) canDoSo.store(false, std::memory_order_relaxed);
    return Descriptor(static_cast<int>(file));
}

// Makes a file with the access that its folder grants, whatever the process masks out: all users of
// the folder are to share the object.
Descriptor createObjectFile(int folder, const char* name) noexcept {
    struct stat status {};
    if (::fstat(folder, &status) != 0) return Descriptor();
    const mode_t mode = status.st_mode & 0666;
    Descriptor file(::openat(folder, name, kObjectFlags | O_CREAT | O_EXCL, mode));
    if (file.valid() && ::fchmod(file.get(), mode) != 0) return Descriptor();
    return file;
}

// Opens an object's file by way of its folder, which is no link, or makes it. An existing file is
// opened without O_CREAT, which systems refuse for the files of other users in a folder that anyone
// may write. Two processes may make one file at once, so the steps repeat.
Descriptor openOrCreate(const char* name) noexcept {
    const Descriptor folder = openRuntimeFolder("objects", O_PATH);
    if (!folder.valid()) return Descriptor();
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        Descriptor file(::openat(folder.get(), name, kObjectFlags));
        if (file.valid()) return file;
        if (errno == ENOENT) {
            file = createObjectFile(folder.get(), name);
            if (file.valid() || errno != EEXIST) return file;
        } else if (errno == EACCES && attempt + 1 < kOpenAttempts) {
            // Its maker may be about to grant the access.
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        } else {
            return Descriptor();
        }
    }
    return Descriptor();
}

}  // namespace

bool chooseNamespace() noexcept {
    const char* const directory = configuredDirectory();
    if (directory == nullptr) errno = ENOENT;
    if (directory != nullptr && ::realpath(directory, place) != nullptr && watchForks())
        return true;
    *place = '\0';
    return false;
}

const char* runtimeDirectory() noexcept { return place; }

Descriptor openRuntimeFolder(const char* name, int access) noexcept {
    char path[PATH_MAX];
    if (!writePath(path, {name})) return Descriptor();
    return Descriptor(::open(path, access | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Descriptor openObjectFile(std::string_view kernelName) noexcept {
    const ObjectFileName name(kernelName);
    Descriptor file = openDirectly(name.text());
    return file.valid() ? std::move(file) : openOrCreate(name.text());
}

bool lockObjectFile(int file, int operation) noexcept {
    int result = 0;
    do {
        result = ::flock(file, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

ObjectFileName::ObjectFileName(std::string_view kernelName) noexcept {
    if (isFileName(kernelName)) {
        *std::copy(kernelName.begin(), kernelName.end(), text_) = '\0';
        return;
    }
    char* end = text_;
    for (const char& character : kernelName) {
        const std::string_view piece = escaped(character);
        if (end + piece.size() > text_ + kKeptBytes) break;
        end = std::copy(piece.begin(), piece.end(), end);
    }
    std::snprintf(end, sizeof text_ - static_cast<std::size_t>(end - text_), "~%016" PRIx64,
                  digest(kernelName));
}

}  // namespace wrenlink::os
