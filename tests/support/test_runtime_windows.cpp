#include <windows.h>

#include "tests/support/test_runtime.h"

namespace wrenlink::test {
namespace {

// Tells one test's objects from those of others that run now or have run in this process.
std::string ownMark() {
    static int count = 0;
    return "wrenlink-test-" + std::to_string(::GetCurrentProcessId()) + '-' +
           std::to_string(++count);
}

}  // namespace

TestRuntime::TestRuntime() : path_(std::filesystem::temp_directory_path() / ownMark()) {
    std::filesystem::create_directory(path_);
}

TestRuntime::~TestRuntime() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

// The folder's name does for the objects too.
std::string TestRuntime::name(const std::string& base) const {
    return path_.filename().string() + ' ' + base;
}

}  // namespace wrenlink::test
