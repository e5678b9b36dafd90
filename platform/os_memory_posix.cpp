// File mappings are files of the runtime directory. Whoever has one open holds a shared lock on its
// file, so that an opener who gets the exclusive lock is alone and starts the block afresh, however
// the holders before it ended.
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/os.h"
#include "platform/runtime_dir_posix.h"

namespace wrenlink::os {
namespace {

using Clock = std::chrono::steady_clock;

// How long an opener waits for a creator that is at work.
constexpr std::chrono::seconds kCreatorLimit(2);
constexpr std::chrono::milliseconds kPause(1);

enum class LockResult { locked, refused, failed };

LockResult lockFile(int file, int operation) noexcept {
    while (::flock(file, operation) != 0) {
        if (errno == EWOULDBLOCK) return LockResult::refused;
        if (errno != EINTR) return LockResult::failed;
    }
    return LockResult::locked;
}

bool fileSize(int file, std::size_t& size) noexcept {
    struct stat status {};
    if (::fstat(file, &status) != 0) return false;
    size = static_cast<std::size_t>(status.st_size);
    return true;
}

// Writing, rather than leaving a hole, takes the memory now: a system that has none says so here
// instead of killing whoever touches the view.
bool writeZeros(int file, std::size_t size) noexcept {
    static constexpr char kZeros[512] = {};
    for (std::size_t done = 0; done < size;) {
        const std::size_t piece = std::min(size - done, sizeof kZeros);
        const ssize_t written = ::pwrite(file, kZeros, piece, static_cast<off_t>(done));
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Puts the block into its first state; the caller is alone with it. A file of the right size keeps
// it at every moment, since a view of a lost page would kill its process.
bool makeBlock(int file, std::size_t size) noexcept {
    std::size_t found = 0;
    if (!fileSize(file, found)) return false;
    if (found == 0 && ::ftruncate(file, static_cast<off_t>(size)) != 0) return false;
    if (found != 0 && found != size) {
        errno = EEXIST;
        return false;
    }
    return writeZeros(file, size);
}

enum class Attempt { created, opened, again, failed };

// Another process holds the block: joins it if the block is whole.
Attempt joinBlock(int file, std::size_t size) noexcept {
    const LockResult lock = lockFile(file, LOCK_SH | LOCK_NB);
    if (lock == LockResult::failed) return Attempt::failed;
    if (lock == LockResult::refused) return Attempt::again;
    std::size_t found = 0;
    if (!fileSize(file, found)) return Attempt::failed;
    if (found == size) return Attempt::opened;
    if (found != 0) {
        errno = EEXIST;
        return Attempt::failed;
    }
    // Its creator has died at work; the next turn takes the creator's place.
    return lockFile(file, LOCK_UN) == LockResult::locked ? Attempt::again : Attempt::failed;
}

Attempt lockBlock(int file, std::size_t size) noexcept {
    const LockResult lock = lockFile(file, LOCK_EX | LOCK_NB);
    if (lock == LockResult::failed) return Attempt::failed;
    if (lock == LockResult::refused) return joinBlock(file, size);
    if (!makeBlock(file, size) || lockFile(file, LOCK_SH) != LockResult::locked) {
        return Attempt::failed;
    }
    return Attempt::created;
}

}  // namespace

FileMapping FileMapping::open(std::string_view kernelName, std::size_t size,
                              bool& existed) noexcept {
    existed = false;
    FileMapping mapping;
    Descriptor file = openObjectFile(kernelName, size);
    if (!file.valid()) return mapping;
    const auto deadline = Clock::now() + kCreatorLimit;
    Attempt attempt = lockBlock(file.get(), size);
    while (attempt == Attempt::again && Clock::now() < deadline) {
        std::this_thread::sleep_for(kPause);
        attempt = lockBlock(file.get(), size);
    }
    if (attempt == Attempt::again) errno = ETIMEDOUT;
    if (attempt == Attempt::created || attempt == Attempt::opened) {
        existed = attempt == Attempt::opened;
        mapping.handle_ = file.release();
    }
    return mapping;
}

void* FileMapping::map(std::size_t size) noexcept {
    void* const view =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int>(handle_), 0);
    return view == MAP_FAILED ? nullptr : view;
}

void FileMapping::unmap(void* view, std::size_t size) noexcept { ::munmap(view, size); }

// Without unlocking: a child made by fork may share the descriptor, and then still holds the block.
void FileMapping::close() noexcept {
    closeQuietly(static_cast<int>(std::exchange(handle_, kNoHandle)));
}

}  // namespace wrenlink::os
