// Whole files, and the standard streams under the name "-".
//
// Threads: the functions keep no state; a LineFile is opened before others use it. Paths are in
// UTF-8. Failures are thrown as Failure (ExitCode::failed) and name the file.
#ifndef WREN_FILES_H
#define WREN_FILES_H

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace wren {

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Throws what errno says about an operation on a file, that Ctrl-C has ended it, or that the reader
// of a pipe has gone.
[[noreturn]] void failWithErrno(std::string_view doing, const std::string& path);

std::filesystem::path pathOf(const std::string& utf8);

// Reads all of a file. One above 64 MiB, which no file of words is, is refused.
std::string readFile(const std::string& path);

// Writes a file completely or not at all: an existing one is replaced once the new one is complete,
// and keeps its permissions. A path that is no ordinary file, such as a device, is written to.
void writeFile(const std::string& path, std::string_view contents);

// A file to which whole lines are added, in one piece each. Any thread may add.
class LineFile {
   public:
    // From now on they go into this file, behind what is there.
    void open(const std::string& path);
    bool isOpen() const noexcept { return file_ != nullptr; }
    // Does nothing without a file.
    void add(std::string_view line);

   private:
    std::string path_;
    File file_;
    std::mutex adding_;
};

// The time in UTC, as lines bear it: "2025-01-31T12:00:00.123Z".
std::string timeStamp();

}  // namespace wren

#endif
