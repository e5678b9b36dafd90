// The public documents folder is the same for all processes of the machine: a test has it alone,
// and leads it elsewhere meanwhile.
#include <windows.h>
// This needs the types of windows.h.
#include <shlobj.h>

#include <stdexcept>
#include <system_error>

#include "tests/support/test_runtime.h"

namespace wrenlink::test {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kFolders[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
constexpr wchar_t kDocuments[] = L"Common Documents";
constexpr wchar_t kSaved[] = L"Common Documents, saved by a test";

HANDLE turn = nullptr;

void check(LSTATUS status) {
    if (status != ERROR_SUCCESS)
        throw std::system_error(status, std::system_category(), "the public documents folder");
}

// A folder as the system notes it, with variables of the environment; empty when there is none.
std::wstring folderNoted(const wchar_t* name) {
    wchar_t text[MAX_PATH] = L"";
    DWORD size = sizeof text;
    ::RegGetValueW(HKEY_LOCAL_MACHINE, kFolders, name, RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, nullptr,
                   text, &size);
    return text;
}

void noteFolder(const wchar_t* name, const std::wstring& folder) {
    const auto size = static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t));
    check(
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kFolders, name, REG_EXPAND_SZ, folder.c_str(), size));
}

// As the system tells all programs.
fs::path publicDocuments() {
    PWSTR path = nullptr;
    const HRESULT result = ::SHGetKnownFolderPath(FOLDERID_PublicDocuments, 0, nullptr, &path);
    fs::path folder = SUCCEEDED(result) ? fs::path(path) : fs::path();
    ::CoTaskMemFree(path);
    return folder;
}

}  // namespace

void setEnvironment(const std::string& name, const std::string& value) {
    ::SetEnvironmentVariableA(name.c_str(), value.empty() ? nullptr : value.c_str());
}

SharedDocuments::SharedDocuments() : TestFolder(u8"wrenlink-d\u00f6cuments-\u2602-") {
    turn = ::CreateMutexA(nullptr, FALSE, "wrenlink tests: public documents");
    ::WaitForSingleObject(turn, INFINITE);
    // A test that was ended left what it had saved.
    if (folderNoted(kSaved).empty()) noteFolder(kSaved, folderNoted(kDocuments));
    noteFolder(kDocuments, path().wstring());
    if (publicDocuments() != path())
        throw std::runtime_error("the public documents folder cannot be led elsewhere");
}

SharedDocuments::~SharedDocuments() {
    try {
        noteFolder(kDocuments, folderNoted(kSaved));
        check(::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kFolders, kSaved));
    } catch (const std::system_error&) {
        // The next test tries again.
    }
    ::ReleaseMutex(turn);
    ::CloseHandle(turn);
}

}  // namespace wrenlink::test
