#include <unistd.h>

#include <cstdlib>
#include <system_error>

#include "tests/support/test_runtime.h"

namespace wrenlink::test {

TestRuntime::TestRuntime() {
    std::string pattern = std::filesystem::temp_directory_path() / "wrenlink-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), pattern);
    }
    path_ = std::filesystem::canonical(pattern);
    std::filesystem::create_directory(path_ / "adapters");
    std::filesystem::create_directory(path_ / "objects");
    ::setenv("WRENLINK_RUNTIME_DIR", path_.c_str(), 1);
}

TestRuntime::~TestRuntime() {
    ::unsetenv("WRENLINK_RUNTIME_DIR");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TestRuntime::name(const std::string& base) const { return base; }

}  // namespace wrenlink::test
