// Texts between Windows and programs that work with UTF-8.
//
// Threads: the functions keep no state.
#ifndef WRENLINK_SIM_WINDOWS_UNICODE_H
#define WRENLINK_SIM_WINDOWS_UNICODE_H

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace quillsim {

// The UTF-8 form of a UTF-16 text.
std::string toUtf8(std::wstring_view text);

// The UTF-8 form of a text in which the system's own words are in the code page of its language,
// while names of files in it need not be.
std::string systemTextInUtf8(const std::string& text);

// Writes a text to a standard stream, in any language also on a console that has a code page; false
// with errno on failure.
bool print(std::FILE* stream, std::string_view text);

// The words of this program's command line, without its name.
std::vector<std::string> argumentsInUtf8();

}  // namespace quillsim

#endif
