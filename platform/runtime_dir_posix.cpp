#include "platform/runtime_dir_posix.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace wrenlink::os {
namespace {

constexpr char kDefaultDirectory[] = "/run/wrenlink";

// Opening an object must not wait (a pipe), gain a terminal, reach children or follow a link.
constexpr int kObjectFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr int kOpenAttempts = 10;

// The bytes of a kernel name that its file name keeps when it cannot be the name itself.
constexpr std::size_t kKeptBytes = 200;

// Null for a relative path: it would lead elsewhere once the host changes its current directory.
const char* configuredDirectory() noexcept {
    const char* directory = ::secure_getenv("WRENLINK_RUNTIME_DIR");
    if (directory == nullptr || *directory == '\0') return kDefaultDirectory;
    return *directory == '/' ? directory : nullptr;
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

// An existing file is opened without O_CREAT, which systems refuse for the files of other users in
// a folder that anyone may write. Two processes may make one file at once, so the steps repeat.
Descriptor openOrCreate(int folder, const char* name) noexcept {
    for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
        Descriptor file(::openat(folder, name, kObjectFlags));
        if (file.valid()) return file;
        if (errno == ENOENT) {
            file = createObjectFile(folder, name);
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

bool isObjectFile(int file, std::size_t size) noexcept {
    struct stat status {};
    if (::fstat(file, &status) != 0) return false;
    const bool sizeFits =
        status.st_size == 0 || static_cast<std::uintmax_t>(status.st_size) == size;
    if (S_ISREG(status.st_mode) && status.st_nlink == 1 && sizeFits) return true;
    errno = EEXIST;
    return false;
}

}  // namespace

bool runtimeDirectory(std::string& path) {
    char canonical[PATH_MAX];
    const char* const directory = configuredDirectory();
    if (directory == nullptr || ::realpath(directory, canonical) == nullptr) return false;
    path = canonical;
    return true;
}

Descriptor openRuntimeFolder(const char* name) noexcept {
    char path[PATH_MAX];
    const char* const directory = configuredDirectory();
    if (directory == nullptr) {
        errno = ENOENT;
        return Descriptor();
    }
    const int length = std::snprintf(path, sizeof path, "%s/%s", directory, name);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof path) {
        errno = ENAMETOOLONG;
        return Descriptor();
    }
    return Descriptor(::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

Descriptor openObjectFile(std::string_view kernelName, std::size_t size) noexcept {
    const Descriptor folder = openRuntimeFolder("objects");
    if (!folder.valid()) return Descriptor();
    Descriptor file = openOrCreate(folder.get(), ObjectFileName(kernelName).text());
    if (file.valid() && !isObjectFile(file.get(), size)) return Descriptor();
    return file;
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
