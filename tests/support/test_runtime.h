// A place of their own for the kernel objects of a test: neither other tests nor users of the
// machine meet them. Children started meanwhile share it. One exists at a time.
#ifndef WRENLINK_TESTS_SUPPORT_TEST_RUNTIME_H
#define WRENLINK_TESTS_SUPPORT_TEST_RUNTIME_H

#include <filesystem>
#include <string>

namespace wrenlink::test {

class TestRuntime {
   public:
    TestRuntime();
    TestRuntime(const TestRuntime&) = delete;
    TestRuntime& operator=(const TestRuntime&) = delete;
    ~TestRuntime();

    // A folder for the test's files; on POSIX it is the runtime directory.
    const std::filesystem::path& path() const { return path_; }
    // A name for a kernel object that no other test uses.
    std::string name(const std::string& base) const;

   private:
    std::filesystem::path path_;
};

}  // namespace wrenlink::test

#endif
