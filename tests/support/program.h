// Another program that a test runs, and with which it speaks in lines of text. It is ended with the
// test. One thread uses it.
#ifndef WRENLINK_TESTS_SUPPORT_PROGRAM_H
#define WRENLINK_TESTS_SUPPORT_PROGRAM_H

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace wrenlink::test {

class Program {
   public:
    // Starts the program that the first word names, a path or a name to look up, in this process's
    // environment. What it prints can be read here, unless it goes to a file, as its errors may.
    // Throws std::system_error when it cannot be started.
    explicit Program(std::vector<std::string> words, const std::filesystem::path& output = {},
                     const std::filesystem::path& errors = {});
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program();

    // The next line that it prints, without its end; empty when it has ended.
    std::string readLine();
    void tell(const std::string& line);
    // Does what Ctrl-C does; on Windows, to one whose output goes to a file.
    void interrupt() const;
    // Tells it no more, and returns its exit code once it has ended; below 0 when it did not end by
    // itself. Counts once.
    int wait();
    // Ends it as it stands, without any clean-up of its own, and waits until it is gone.
    void kill();

   private:
    std::intptr_t process_ = 0;
    std::FILE* output_ = nullptr;
    std::FILE* input_ = nullptr;
};

}  // namespace wrenlink::test

#endif
