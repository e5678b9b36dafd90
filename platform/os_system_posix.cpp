#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/descriptor_posix.h"
#include "platform/os.h"

namespace wrenlink::os {
namespace {

constexpr char kDefaultDocumentsFolder[] = "/etc/wrenlink";

}  // namespace

const char kPathSeparator = '/';

ErrorCode lastError() noexcept { return static_cast<ErrorCode>(errno); }

void setLastError(ErrorCode code) noexcept { errno = static_cast<int>(code); }

void errorText(ErrorCode code, char* buffer, std::size_t size) noexcept {
    if (size == 0) return;
    const int error = errno;
    char scratch[256];
    const char* const text = ::strerror_r(static_cast<int>(code), scratch, sizeof scratch);
    const std::size_t length = ::strnlen(text, size - 1);
    std::memcpy(buffer, text, length);
    buffer[length] = '\0';
    errno = error;
}

bool environmentVariable(const char* name, std::string& value) {
    const char* const text = ::secure_getenv(name);
    if (text == nullptr) return false;
    value = text;
    return true;
}

bool sharedDocumentsFolder(std::string& folder) {
    if (!environmentVariable("WRENLINK_DOCUMENTS_DIR", folder) || folder.empty()) {
        folder = kDefaultDocumentsFolder;
    }
    while (!folder.empty() && folder.back() == kPathSeparator) folder.pop_back();
    return true;
}

std::FILE* openTextFile(const char* path) noexcept {
    Descriptor file(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file.valid() || ::fstat(file.get(), &status) != 0) return nullptr;
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    std::FILE* const stream = ::fdopen(file.get(), "r");
    if (stream != nullptr) file.release();
    return stream;
}

}  // namespace wrenlink::os
