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
    // Not in the host's language: to find it, the system would look into the environment, which the
    // host may be changing in another thread.
    const char* const text = ::strerrordesc_np(static_cast<int>(code));
    if (text != nullptr)
        std::snprintf(buffer, size, "%s", text);
    else
        std::snprintf(buffer, size, "Unknown error %d", static_cast<int>(code));
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
