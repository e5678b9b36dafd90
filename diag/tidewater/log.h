// The log that the environment variable TIDEWATER_LOG asks for: "stderr", or the name of a file to
// append to. It is opened when the module that carries tidewater is loaded, before any other of its
// static objects is made, and closed when it is unloaded, after all others. Without the variable,
// and when the file cannot be opened, there is no log.
//
// A line is
//
//     2026-11-22T21:41:23.123456Z PROCESS THREAD FUNCTION FILE:LINE TEXT
//
// and reaches the file in one write, so that the lines of threads and processes never mix. Any
// thread may write. A thread's native error code is left as it was.
#ifndef WRENLINK_DIAG_LOG_H
#define WRENLINK_DIAG_LOG_H

#include <cstdarg>
#include <cstddef>

namespace tidewater {

// The longest line, with its newline; a longer one is cut. A pipe takes so much in one piece.
inline constexpr std::size_t kLineLimit = 4096;

// A place in the sources, as a line names it.
struct Place {
    const char* function;
    const char* file;
    unsigned long line;
};

// Writes one line; the text is made printf-style, and a control character in it becomes a space.
// Nothing happens without a log.
void writeLine(const Place& place, const char* format, ...) noexcept
    __attribute__((format(printf, 2, 3)));
void writeLineList(const Place& place, const char* format, std::va_list arguments) noexcept
    __attribute__((format(printf, 2, 0)));

}  // namespace tidewater

#endif
