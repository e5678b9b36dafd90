// File mappings are files of the runtime directory. Whoever has one open holds a shared lock on its
// file, so that an opener who gets the exclusive lock is alone and starts the block afresh, however
// the holders before it ended.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/os.h"
#include "platform/runtime_dir_posix.h"
#include "platform/unshared_posix.h"

namespace wrenlink::os {
namespace {

using Clock = std::chrono::steady_clock;

// How long an opener waits for a creator that is at work.
constexpr std::chrono::seconds kCreatorLimit(2);
constexpr std::chrono::milliseconds kPause(1);

// Whether a file is an ordinary one with one name, which is empty or has the block's size: anything
// else is not to be written to. EEXIST then.
bool canBeBlock(int file, std::size_t size) noexcept {
    struct stat status {};
    if (::fstat(file, &status) != 0) return false;
    const bool sizeFits =
        status.st_size == 0 || static_cast<std::uintmax_t>(status.st_size) == size;
    if (S_ISREG(status.st_mode) && status.st_nlink == 1 && sizeFits) return true;
    errno = EEXIST;
    return false;
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

// Puts the block into its first state; the caller is alone with it. A file of the right size is
// written over, not cut: a process that still has a view of a lost page would be killed.
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
    if (!lockObjectFile(file, LOCK_SH | LOCK_NB))
        return errno == EWOULDBLOCK ? Attempt::again : Attempt::failed;
    std::size_t found = 0;
    if (!fileSize(file, found)) return Attempt::failed;
    if (found == size) return Attempt::opened;
    if (found != 0) {
        errno = EEXIST;
        return Attempt::failed;
    }
    // Its creator has died at work; the next turn takes the creator's place.
    return lockObjectFile(file, LOCK_UN) ? Attempt::again : Attempt::failed;
}

Attempt lockBlock(int file, std::size_t size) noexcept {
    if (!lockObjectFile(file, LOCK_EX | LOCK_NB))
        return errno == EWOULDBLOCK ? joinBlock(file, size) : Attempt::failed;
    const bool made = makeBlock(file, size) && lockObjectFile(file, LOCK_SH);
    return made ? Attempt::created : Attempt::failed;
}

}  // namespace

FileMapping FileMapping::open(std::string_view kernelName, std::size_t size,
                              bool& existed) noexcept {
    existed = false;
    FileMapping mapping;
    mapping.handle_ = openUnshared([&] { return openObjectFile(kernelName); });
    const int file = descriptorOf(mapping.handle_);
    if (file < 0) return mapping;
    const auto deadline = Clock::now() + kCreatorLimit;
    Attempt attempt = canBeBlock(file, size) ? lockBlock(file, size) : Attempt::failed;
    while (attempt == Attempt::again && Clock::now() < deadline) {
        std::this_thread::sleep_for(kPause);
        attempt = lockBlock(file, size);
    }
    if (attempt == Attempt::again) errno = ETIMEDOUT;
    existed = attempt == Attempt::opened;
    if (!existed && attempt != Attempt::created) mapping.close();
    return mapping;
}

bool FileMapping::valid() const noexcept { return descriptorOf(handle_) >= 0; }

// A view is as good as a descriptor at keeping a lock, and a child made by fork has it too. So the
// file is mapped from where it is opened once more, without the lock; unless there is no /proc.
void* FileMapping::map(std::size_t size) noexcept {
    const int locked = descriptorOf(handle_);
    const Descriptor unlocked(::open(DescriptorLink(locked).path(), O_RDWR | O_CLOEXEC));
    if (!unlocked.valid() && errno != ENOENT) return nullptr;
    void* const view = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED,
                              unlocked.valid() ? unlocked.get() : locked, 0);
    return view == MAP_FAILED ? nullptr : view;
}

void FileMapping::unmap(void* view, std::size_t size) noexcept { ::munmap(view, size); }

// Closing alone would not do: a child that has just been made may still have its copy.
void FileMapping::close() noexcept {
    const int error = errno;
    if (valid()) ::flock(descriptorOf(handle_), LOCK_UN);
    errno = error;
    closeUnshared(handle_);
}

}  // namespace wrenlink::os
