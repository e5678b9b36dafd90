// Another program that a test runs. One thread uses it.
#ifndef WRENLINK_TESTS_SUPPORT_PROGRAM_H
#define WRENLINK_TESTS_SUPPORT_PROGRAM_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace wrenlink::test {

class Program {
   public:
    // Starts the program that the first word names, a path or a name to look up, in this process's
    // environment; what it prints goes to two files. Throws std::system_error when that fails.
    Program(std::vector<std::string> words, const std::filesystem::path& output,
            const std::filesystem::path& errors);
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() { wait(); }

    // Does what Ctrl-C does.
    void interrupt() const;
    // Its exit code once it has ended; below 0 when it did not end by itself. Counts once.
    int wait();

   private:
    std::intptr_t process_ = 0;
};

}  // namespace wrenlink::test

#endif
