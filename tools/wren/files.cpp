#include "files.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <random>
#include <system_error>

#include "failure.h"
#include "interruption.h"
#include "system.h"

namespace wren {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kStandardStream = "-";

[[noreturn]] void fail(std::string_view doing, const std::string& path, const std::string& reason) {
    throw Failure(ExitCode::failed, fmt::format("cannot {} '{}': {}", doing, path, reason));
}

std::string readAll(std::FILE* file, const std::string& name) {
    constexpr std::size_t kMostBytes = 64u << 20;
    std::string contents;
    for (std::size_t size = 1; size > 0 && !interrupted() && contents.size() <= kMostBytes;) {
        char buffer[65536];
        size = std::fread(buffer, 1, sizeof buffer, file);
        contents.append(buffer, size);
    }
    if (interrupted() || std::ferror(file) != 0) failWithErrno("read", name);
    if (contents.size() > kMostBytes) fail("use", name, "it is larger than 64 MiB");
    return contents;
}

// Writes to a file and, unless that fails, to what stands behind it.
void writeAll(std::FILE* file, std::string_view contents, const std::string& name) {
    if (std::fwrite(contents.data(), 1, contents.size(), file) != contents.size() ||
        std::fflush(file) != 0)
        failWithErrno("write", name);
}

void writePlain(const fs::path& path, std::string_view contents, const std::string& name) {
    File file(system::openFile(path, "wb"));
    if (!file) failWithErrno("write", name);
    writeAll(file.get(), contents, name);
    if (std::fclose(file.release()) != 0) failWithErrno("write", name);
}

// A file that is removed again unless it was moved to its place.
class TemporaryFile {
   public:
    explicit TemporaryFile(const fs::path& target) : path_(target) {
        std::random_device random;
        path_ += fmt::format(".{:08x}{:08x}.part", random(), random());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        std::error_code ignored;
        fs::remove(path_, ignored);
    }

    const fs::path& path() const noexcept { return path_; }

   private:
    fs::path path_;
};

void replaceFile(const fs::path& target, std::string_view contents, bool exists,
                 const std::string& name) {
    const TemporaryFile temporary(target);
    writePlain(temporary.path(), contents, name);
    std::error_code error;
    if (exists) fs::permissions(temporary.path(), fs::status(target).permissions(), error);
    if (!error) fs::rename(temporary.path(), target, error);
    if (error) fail("write", name, system::inUtf8(error.message()));
}

}  // namespace

void failWithErrno(std::string_view doing, const std::string& path) {
    const int error = errno;
    if (interrupted()) throw Failure(ExitCode::interrupted, "interrupted");
    const std::string reason = std::generic_category().message(error);
    if (error == EPIPE) throw Failure(ExitCode::unheard, reason);
    fail(doing, path, reason);
}

fs::path pathOf(const std::string& utf8) { return std::u8string(utf8.begin(), utf8.end()); }

std::string readFile(const std::string& path) {
    if (path == kStandardStream) return readAll(stdin, "standard input");
    std::error_code ignored;
    // Some systems open a folder and then cannot read it.
    if (fs::is_directory(pathOf(path), ignored)) fail("read", path, "it is a folder");
    const File file(system::openFile(pathOf(path), "rb"));
    if (!file) failWithErrno("read", path);
    return readAll(file.get(), path);
}

void writeFile(const std::string& path, std::string_view contents) {
    if (path == kStandardStream) return writeAll(stdout, contents, "standard output");
    const fs::path asked = pathOf(path);
    if (system::isDevice(asked)) return writePlain(asked, contents, path);
    std::error_code error;
    const fs::file_status status = fs::status(asked, error);
    if (fs::is_directory(status)) fail("write", path, "it is a folder");
    // A link stays a link: the file that it names is replaced.
    fs::path target = fs::weakly_canonical(asked, error);
    if (error) target = asked;
    replaceFile(target, contents, fs::exists(status), path);
}

void LineFile::open(const std::string& path) {
    path_ = path;
    file_.reset(system::openFile(pathOf(path), "ab"));
    if (!file_) failWithErrno("write", path);
}

void LineFile::add(std::string_view line) {
    if (!file_) return;
    const std::lock_guard alone(adding_);
    writeAll(file_.get(), line, path_);
}

std::string timeStamp() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    return fmt::format("{:%FT%T}.{:03}Z",
                       fmt::gmtime(static_cast<std::time_t>(milliseconds / 1000)),
                       milliseconds % 1000);
}

}  // namespace wren
