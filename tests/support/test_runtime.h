// What tests change about the machine around the library: places of their own, where neither other
// tests nor users of the machine meet them. Children started meanwhile share them. One of each kind
// exists at a time; one thread makes them, while no other uses the library.
#ifndef WRENLINK_TESTS_SUPPORT_TEST_RUNTIME_H
#define WRENLINK_TESTS_SUPPORT_TEST_RUNTIME_H

#include <filesystem>
#include <string>

namespace wrenlink::test {

// Sets a variable of this process's environment, which children inherit; "" may unset it.
void setEnvironment(const std::string& name, const std::string& value);

// How many times as long as in the test command the tests' loops run: the whole number in
// WRENLINK_TEST_SCALE, or 1. Throws when it holds anything else.
unsigned scale();

// A new folder, which goes with all that is in it.
class TestFolder {
   public:
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

   protected:
    // Its name begins with this one.
    explicit TestFolder(const std::filesystem::path& name);
    ~TestFolder();

   private:
    std::filesystem::path path_;
};

// A place for the kernel objects of a test and for its files; on POSIX it is the runtime directory.
class TestRuntime : public TestFolder {
   public:
    TestRuntime();
    ~TestRuntime();

    // A name for a kernel object that no other test uses.
    std::string name(const std::string& base) const;
};

// The shared documents folder that the library looks into: an empty one, with a name that is not
// all ASCII.
class SharedDocuments : public TestFolder {
   public:
    SharedDocuments();
    ~SharedDocuments();
};

}  // namespace wrenlink::test

#endif
