// Named locks are locks on whole files, which lie where the library has its own.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "runtime_folder_posix.h"
#include "turn.h"

namespace wren {

namespace {

namespace fs = std::filesystem;

fs::path objects() { return fs::path(system::runtimeFolder()) / "objects"; }

std::string lastTrouble(const fs::path& path) {
    return "'" + path.string() + "': " + std::generic_category().message(errno);
}

int openLock(const fs::path& path, int flags) {
    return ::open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
}

// Whoever may make files in the folder is to share those that others made.
int createLock(const fs::path& path) {
    const int file = openLock(path, O_RDWR | O_CREAT | O_EXCL);
    struct stat folder {};
    if (file >= 0 && ::stat(path.parent_path().c_str(), &folder) == 0)
        ::fchmod(file, folder.st_mode & 0666);
    return file;
}

}  // namespace

NamedLock::NamedLock(const std::string& name) {
    const fs::path path = objects() / name;
    int file = openLock(path, O_RDWR);
    // In a step of its own: systems refuse it for other users' files in a folder that anyone may
    // use.
    if (file < 0 && errno == ENOENT) file = createLock(path);
    // One that may only be read will do, and so will one that another host has made just now.
    if (file < 0 && (errno == EACCES || errno == EEXIST)) file = openLock(path, O_RDONLY);
    if (file < 0) trouble_ = lastTrouble(path);
    handle_ = file;
}

NamedLock::~NamedLock() {
    if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

bool NamedLock::take() noexcept {
    constexpr std::chrono::milliseconds kMoment(10);
    if (::flock(static_cast<int>(handle_), LOCK_EX | LOCK_NB) == 0) return true;
    std::this_thread::sleep_for(kMoment);
    return false;
}

void NamedLock::give() noexcept { ::flock(static_cast<int>(handle_), LOCK_UN); }

std::vector<std::string> missingLocks() {
    std::vector<std::string> missing;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(objects(), ignored)) {
        if (!entry.path().filename().string().starts_with("kvs_mutex_")) continue;
        const int file = openLock(entry.path(), O_RDWR);
        if (file < 0) missing.push_back(lastTrouble(entry.path()));
        if (file >= 0) ::close(file);
    }
    return missing;
}

}  // namespace wren
