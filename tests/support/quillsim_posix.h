// A process of the simulator, which serves adapters or steers them. It ends with the test. One
// thread uses it.
#ifndef WRENLINK_TESTS_SUPPORT_QUILLSIM_POSIX_H
#define WRENLINK_TESTS_SUPPORT_QUILLSIM_POSIX_H

#include "tests/support/program.h"

namespace wrenlink::test {

class Quillsim : public Program {
   public:
    // A server says "ready" first.
    Quillsim(const std::filesystem::path& runtime, std::vector<std::string> arguments)
        : Program(words(runtime, std::move(arguments))) {}

   private:
    static std::vector<std::string> words(const std::filesystem::path& runtime,
                                          std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {QUILLSIM, "--runtime-dir", runtime});
        return arguments;
    }
};

}  // namespace wrenlink::test

#endif
