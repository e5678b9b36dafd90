#include "word_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <system_error>

#include "failure.h"

namespace wren {

namespace {

namespace fs = std::filesystem;

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void fail(std::string_view doing, const std::string& path, const std::string& reason) {
    throw Failure(ExitCode::failed, fmt::format("cannot {} '{}': {}", doing, path, reason));
}

[[noreturn]] void failWithErrno(std::string_view doing, const std::string& path) {
    const int error = errno;
    fail(doing, path, std::generic_category().message(error));
}

std::vector<unsigned char> toBytes(std::span<const std::uint16_t> words) {
    std::vector<unsigned char> bytes;
    bytes.reserve(words.size() * 2);
    for (const std::uint16_t word : words) {
        bytes.push_back(static_cast<unsigned char>(word & 0xFF));
        bytes.push_back(static_cast<unsigned char>(word >> 8));
    }
    return bytes;
}

// Writes the bytes to one file; a failure names the file that the user asked for.
void writeBytes(const fs::path& path, std::span<const unsigned char> bytes,
                const std::string& asked) {
    File file(std::fopen(path.string().c_str(), "wb"));
    if (!file) failWithErrno("write", asked);
    if (std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size())
        failWithErrno("write", asked);
    if (std::fclose(file.release()) != 0) failWithErrno("write", asked);
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

void replaceFile(const fs::path& target, std::span<const unsigned char> bytes, bool exists) {
    const TemporaryFile temporary(target);
    writeBytes(temporary.path(), bytes, target.string());
    std::error_code error;
    if (exists) fs::permissions(temporary.path(), fs::status(target).permissions(), error);
    if (!error) fs::rename(temporary.path(), target, error);
    if (error) fail("write", target.string(), error.message());
}

}  // namespace

std::vector<std::uint16_t> readWordFile(const std::string& path, std::size_t mostWords) {
    const File file(std::fopen(path.c_str(), "rb"));
    if (!file) failWithErrno("read", path);
    // One byte more than may be there tells a file that is too long, however long it is.
    std::vector<unsigned char> bytes(mostWords * 2 + 1);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    if (std::ferror(file.get()) != 0) failWithErrno("read", path);
    if (bytes.empty()) fail("use", path, "the file is empty");
    if (bytes.size() > mostWords * 2)
        fail("use", path, fmt::format("the file holds more than the {} words that fit", mostWords));
    if (bytes.size() % 2 != 0)
        fail("use", path,
             fmt::format("the file has {} bytes, and words have two each", bytes.size()));

    std::vector<std::uint16_t> words(bytes.size() / 2);
    for (std::size_t i = 0; i < words.size(); ++i)
        words[i] = static_cast<std::uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    return words;
}

void writeWordFile(const std::string& path, std::span<const std::uint16_t> words) {
    const std::vector<unsigned char> bytes = toBytes(words);
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) return writeBytes(path, bytes, path);
    // A link stays a link: the file that it names is replaced.
    fs::path target = fs::weakly_canonical(path, error);
    if (error) target = path;
    replaceFile(target, bytes, fs::exists(status));
}

}  // namespace wren
