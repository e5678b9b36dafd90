#include <windows.h>
// These need the types of windows.h.
#include <io.h>
#include <knownfolders.h>
#include <shlobj.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "platform/native_windows.h"
#include "platform/os.h"
#include "platform/text_windows.h"

namespace wrenlink::os {
namespace {

// Neutral language, the user's default.
constexpr DWORD kUserLanguage = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);
static_assert(kUserLanguage == 0x400);

// With its terminator.
constexpr DWORD kLongestVariable = 32768;

// A text of the shell's, given back in any case, even when it is none.
struct TaskText {
    PWSTR text = nullptr;

    TaskText() = default;
    TaskText(const TaskText&) = delete;
    TaskText& operator=(const TaskText&) = delete;
    ~TaskText() { ::CoTaskMemFree(text); }
};

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Devices and pipes have file names too.
bool isOrdinaryFile(std::FILE* file) noexcept {
    const auto handle = static_cast<NativeHandle>(::_get_osfhandle(::_fileno(file)));
    return ::GetFileType(toHandle(handle)) == FILE_TYPE_DISK;
}

}  // namespace

// The session's, whatever the environment is.
bool chooseNamespace() noexcept { return true; }

const char kPathSeparator = '\\';

ErrorCode lastError() noexcept { return ::GetLastError(); }

void setLastError(ErrorCode code) noexcept { ::SetLastError(code); }

void errorText(ErrorCode code, char* buffer, std::size_t size) noexcept {
    if (size == 0) return;
    const ErrorKeeper keeper;
    char text[1024];
    const DWORD length =
        ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                         kUserLanguage, text, sizeof text, nullptr);
    const std::size_t kept = std::min<std::size_t>(length, size - 1);
    std::memcpy(buffer, text, kept);
    buffer[kept] = '\0';
}

bool environmentVariable(const char* name, std::string& value) {
    std::string text(kLongestVariable, '\0');
    ::SetLastError(ERROR_SUCCESS);
    const DWORD length = ::GetEnvironmentVariableA(name, text.data(), kLongestVariable);
    if (length == 0 && ::GetLastError() != ERROR_SUCCESS) return false;
    text.resize(length);
    value = std::move(text);
    return true;
}

bool sharedDocumentsFolder(std::string& folder) {
    TaskText path;
    if (FAILED(::SHGetKnownFolderPath(FOLDERID_PublicDocuments, 0, nullptr, &path.text)))
        return false;
    folder = toUtf8(path.text);
    return true;
}

std::FILE* openTextFile(const char* path) noexcept {
    try {
        File file(::_wfopen(fromUtf8(path).c_str(), L"rt"));
        if (file == nullptr || isOrdinaryFile(file.get())) return file.release();
        file.reset();
        ::SetLastError(ERROR_FILE_INVALID);
    } catch (const std::bad_alloc&) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    return nullptr;
}

}  // namespace wrenlink::os
