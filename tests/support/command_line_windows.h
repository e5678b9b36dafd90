// How tests hand words to a program of Windows, which gets one line. Any thread may call this.
#ifndef WRENLINK_TESTS_SUPPORT_COMMAND_LINE_WINDOWS_H
#define WRENLINK_TESTS_SUPPORT_COMMAND_LINE_WINDOWS_H

#include <string>
#include <vector>

namespace wrenlink::test {

// The line that C programs take apart into these words, the first of which names the program.
std::string commandLine(const std::vector<std::string>& words);

}  // namespace wrenlink::test

#endif
