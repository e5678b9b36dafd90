// What tidewater needs of the operating system; tidewater_posix.cpp and tidewater_windows.cpp give
// it. Everything here may be called from any thread and never throws.
#ifndef WRENLINK_DIAG_TIDEWATER_OS_H
#define WRENLINK_DIAG_TIDEWATER_OS_H

#include <cstddef>
#include <cstdint>

namespace tidewater::os {

// A file that log lines go to: a descriptor, or a HANDLE.
using LogFile = std::intptr_t;
inline constexpr LogFile kNoFile = -1;

// The value of an environment variable; null when it is not set, or when the process runs with
// rights that its user does not have. Valid until the next call.
const char* environment(const char* name) noexcept;

// The process's standard error stream; not to be closed.
LogFile standardError() noexcept;
// Opens a file so that every write goes to its end, and makes it when there is none; children do
// not inherit it. kNoFile when that is not possible.
LogFile openForAppending(const char* path) noexcept;
void close(LogFile file) noexcept;
// Hands over all bytes at once, so that they stay together when others write too. What the system
// refuses is lost.
void write(LogFile file, const char* bytes, std::size_t size) noexcept;

unsigned long processId() noexcept;
unsigned long threadId() noexcept;

// Keeps the calling thread's native error code over its own life.
class ErrorKeeper {
   public:
    ErrorKeeper() noexcept;
    ErrorKeeper(const ErrorKeeper&) = delete;
    ErrorKeeper& operator=(const ErrorKeeper&) = delete;
    ~ErrorKeeper();

   private:
    unsigned long code_;
};

}  // namespace tidewater::os

#endif
