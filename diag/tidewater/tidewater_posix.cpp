#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "diag/tidewater/tidewater_os.h"

namespace tidewater::os {

const char* environment(const char* name) noexcept { return secure_getenv(name); }

LogFile standardError() noexcept { return STDERR_FILENO; }

LogFile openForAppending(const char* path) noexcept {
    constexpr int kAppend = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
    return open(path, kAppend, 0666);
}

void close(LogFile file) noexcept { ::close(static_cast<int>(file)); }

void write(LogFile file, const char* bytes, std::size_t size) noexcept {
    while (::write(static_cast<int>(file), bytes, size) < 0 && errno == EINTR) {
    }
}

unsigned long processId() noexcept { return static_cast<unsigned long>(getpid()); }

unsigned long threadId() noexcept { return static_cast<unsigned long>(gettid()); }

ErrorKeeper::ErrorKeeper() noexcept : code_(static_cast<unsigned long>(errno)) {}

ErrorKeeper::~ErrorKeeper() { errno = static_cast<int>(code_); }

}  // namespace tidewater::os
