// What tests change about the machine around the library. One thread of a process does so, while no
// other uses the library.
#ifndef WRENLINK_TESTS_SUPPORT_MACHINE_H
#define WRENLINK_TESTS_SUPPORT_MACHINE_H

#include <filesystem>
#include <string>

namespace wrenlink::test {

// Sets a variable of this process's environment, which children inherit; "" may unset it.
void setEnvironment(const std::string& name, const std::string& value);

// The shared documents folder that the library looks into: an empty one for this test, with a name
// that is not all ASCII. One exists at a time.
class SharedDocuments {
   public:
    SharedDocuments();
    SharedDocuments(const SharedDocuments&) = delete;
    SharedDocuments& operator=(const SharedDocuments&) = delete;
    ~SharedDocuments();

    const std::filesystem::path& path() const { return path_; }

   private:
    std::filesystem::path path_;
};

}  // namespace wrenlink::test

#endif
