// A process of the simulator, which serves adapters or steers them. It ends with the test. One
// thread uses it.
#ifndef WRENLINK_TESTS_SUPPORT_QUILLSIM_POSIX_H
#define WRENLINK_TESTS_SUPPORT_QUILLSIM_POSIX_H

#include <sys/types.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace wrenlink::test {

class Quillsim {
   public:
    // Starts it. Throws std::system_error when that fails.
    Quillsim(const std::filesystem::path& runtime, std::vector<std::string> arguments);
    Quillsim(const Quillsim&) = delete;
    Quillsim& operator=(const Quillsim&) = delete;
    ~Quillsim();

    // What it prints, up to a line's end, which is included; empty when it has ended. A server says
    // "ready" first.
    std::string readLine();
    // The exit code, once it ends by itself, or minus the signal. Counts once.
    int wait();
    int kill(int signal);

   private:
    pid_t id_ = 0;
    std::FILE* output_ = nullptr;
};

}  // namespace wrenlink::test

#endif
