// The decorated calls of the operating system, as primitives.cpp has the primitives: the linker
// hands over what the backend's files call, not what the system's own libraries do.
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "tests/faults/faults.h"

namespace wrenlink::test {
namespace {

bool shortCuts = false;

bool strikes(std::string_view call, int code) {
    // Who waits for a completion receives it, but what is wrong with it is the outcome.
    std::optional<PrimitiveScope> outcome;
    if (call == "recvmsg") outcome.emplace(Call::deviceOutcome);
    for (const std::string_view repeated : {"flock", "poll", "pwrite", "recvmsg", "sendmsg"})
        if (call == repeated && systemCallFails(FaultPlan::Among::interruptions, EINTR))
            code = EINTR;
    if (code != EINTR && !systemCallFails(FaultPlan::Among::systemCalls, code)) return false;
    errno = code;
    return true;
}

}  // namespace

// A call's name, result, parameters, error code, and what it gives when it fails.
#define DECORATE(name, Result, parameters, arguments, code, failure)         \
    Result original_##name parameters __asm__("__real_" #name);              \
    Result decorated_##name parameters __asm__("__wrap_" #name);             \
    Result decorated_##name parameters {                                     \
        return strikes(#name, code) ? (failure) : original_##name arguments; \
    }

DECORATE(connect, int, (int file, const sockaddr* name, socklen_t size), (file, name, size),
         ECONNREFUSED, -1)
DECORATE(fchmod, int, (int file, mode_t mode), (file, mode), EPERM, -1)
DECORATE(fcntl, int, (int file, int command, long value), (file, command, value), EDEADLK, -1)
DECORATE(fdopen, std::FILE*, (int file, const char* mode), (file, mode), EINVAL, nullptr)
DECORATE(fdopendir, DIR*, (int file), (file), ENOTDIR, nullptr)
DECORATE(flock, int, (int file, int operation), (file, operation), ENOLCK, -1)
DECORATE(fstat, int, (int file, struct stat* status), (file, status), EOVERFLOW, -1)
DECORATE(fstatat, int, (int folder, const char* name, struct stat* status, int flags),
         (folder, name, status, flags), ELOOP, -1)
DECORATE(ftruncate, int, (int file, off_t size), (file, size), EFBIG, -1)
DECORATE(mmap, void*, (void* at, std::size_t size, int access, int flags, int file, off_t offset),
         (at, size, access, flags, file, offset), ENODEV, MAP_FAILED)
// The mode is there when the flags say so; handing it on is harmless else.
DECORATE(open, int, (const char* path, int flags, mode_t mode), (path, flags, mode), EMFILE, -1)
DECORATE(openat, int, (int folder, const char* path, int flags, mode_t mode),
         (folder, path, flags, mode), ENFILE, -1)
DECORATE(poll, int, (pollfd * files, nfds_t count, int timeout), (files, count, timeout), ENOMEM,
         -1)
DECORATE(pthread_key_create, int, (pthread_key_t * key, void (*end)(void*)), (key, end), EAGAIN,
         EAGAIN)
DECORATE(pthread_setspecific, int, (pthread_key_t key, const void* value), (key, value), ENOBUFS,
         ENOBUFS)
DECORATE(pwrite, ssize_t, (int file, const void* bytes, std::size_t size, off_t at),
         (file, bytes, size, at), ENOSPC, -1)
DECORATE(readdir, dirent*, (DIR * folder), (folder), EBADF, nullptr)
DECORATE(realpath, char*, (const char* path, char* resolved), (path, resolved), EACCES, nullptr)
DECORATE(recvmsg, ssize_t, (int file, msghdr* message, int flags), (file, message, flags), EIO, -1)
DECORATE(sendmsg, ssize_t, (int file, const msghdr* message, int flags), (file, message, flags),
         EMSGSIZE, -1)
DECORATE(setsockopt, int, (int file, int level, int name, const void* value, socklen_t size),
         (file, level, name, value, size), ENOMEM, -1)
DECORATE(socket, int, (int domain, int type, int protocol), (domain, type, protocol), EAFNOSUPPORT,
         -1)

// openat2, by its number: a short cut. That it fails is no failure, the library goes another way
// then.
long originalSyscall(long number, ...) __asm__("__real_syscall");
long decoratedSyscall(long number, int folder, const char* path, void* how,
                      std::size_t size) __asm__("__wrap_syscall");
long decoratedSyscall(long number, int folder, const char* path, void* how, std::size_t size) {
    if (shortCuts) return originalSyscall(number, folder, path, how, size);
    errno = ENOSYS;
    return -1;
}

void offerShortCuts(bool offered) { shortCuts = offered; }

}  // namespace wrenlink::test
