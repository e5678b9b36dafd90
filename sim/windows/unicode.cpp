#include "sim/windows/unicode.h"

#include <windows.h>
// These need the types of windows.h.
#include <io.h>
#include <shellapi.h>

#include <cerrno>
#include <memory>

namespace quillsim {
namespace {

std::wstring toWide(UINT codePage, std::string_view text) {
    const int length = static_cast<int>(text.size());
    const int size = ::MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(codePage, 0, text.data(), length, wide.data(), size);
    return wide;
}

bool isUtf8(const std::string& text) {
    return ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.c_str(), -1, nullptr, 0) > 0;
}

struct LocalFreer {
    void operator()(void* memory) const { ::LocalFree(memory); }
};

}  // namespace

std::string toUtf8(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    const int size =
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string converted(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, converted.data(), size, nullptr,
                          nullptr);
    return converted;
}

std::string systemTextInUtf8(const std::string& text) {
    return isUtf8(text) ? text : toUtf8(toWide(CP_ACP, text));
}

bool print(std::FILE* stream, std::string_view text) {
    HANDLE const console = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(stream)));
    DWORD mode = 0;
    if (!::GetConsoleMode(console, &mode))
        return std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    const std::wstring wide = toWide(CP_UTF8, text);
    errno = EIO;
    return ::WriteConsoleW(console, wide.data(), static_cast<DWORD>(wide.size()), &mode, nullptr) !=
           FALSE;
}

std::vector<std::string> argumentsInUtf8() {
    int count = 0;
    const std::unique_ptr<wchar_t*, LocalFreer> words(
        ::CommandLineToArgvW(::GetCommandLineW(), &count));
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i) arguments.push_back(toUtf8(words.get()[i]));
    return arguments;
}

}  // namespace quillsim
