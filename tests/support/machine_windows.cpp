// The public documents folder is the machine's own, and the same for all processes: a test has it
// alone, and what was there under the map file's name comes back afterwards.
#include <windows.h>
// This needs the types of windows.h.
#include <shlobj.h>

#include <system_error>

#include "tests/support/machine.h"

namespace wrenlink::test {
namespace {

namespace fs = std::filesystem;

constexpr char kMapFile[] = "quillmap.txt";
constexpr char kSavedMapFile[] = "quillmap.txt.saved-by-test";

HANDLE turn = nullptr;

fs::path publicDocuments() {
    PWSTR path = nullptr;
    const HRESULT result = ::SHGetKnownFolderPath(FOLDERID_PublicDocuments, 0, nullptr, &path);
    fs::path folder = SUCCEEDED(result) ? fs::path(path) : fs::path();
    ::CoTaskMemFree(path);
    if (folder.empty()) throw std::system_error(result, std::system_category(), "known folder");
    return folder;
}

// A test that was ended left its own map file, and what it had saved.
void restore(const fs::path& folder) {
    if (fs::exists(folder / kSavedMapFile)) fs::rename(folder / kSavedMapFile, folder / kMapFile);
}

}  // namespace

void setEnvironment(const std::string& name, const std::string& value) {
    ::SetEnvironmentVariableA(name.c_str(), value.empty() ? nullptr : value.c_str());
}

SharedDocuments::SharedDocuments() : path_(publicDocuments()) {
    turn = ::CreateMutexA(nullptr, FALSE, "wrenlink tests: public documents");
    ::WaitForSingleObject(turn, INFINITE);
    restore(path_);
    if (fs::exists(path_ / kMapFile)) fs::rename(path_ / kMapFile, path_ / kSavedMapFile);
}

SharedDocuments::~SharedDocuments() {
    std::error_code ignored;
    fs::remove_all(path_ / kMapFile, ignored);
    try {
        restore(path_);
    } catch (const fs::filesystem_error&) {
        // The next test tries again.
    }
    ::ReleaseMutex(turn);
    ::CloseHandle(turn);
}

}  // namespace wrenlink::test
