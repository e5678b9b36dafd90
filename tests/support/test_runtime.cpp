#include "tests/support/test_runtime.h"

#include <cstdlib>
#include <random>
#include <string>

namespace wrenlink::test {

namespace fs = std::filesystem;

unsigned scale() {
    const char* const text = std::getenv("WRENLINK_TEST_SCALE");
    return text == nullptr ? 1 : static_cast<unsigned>(std::stoul(text));
}

TestFolder::TestFolder(const fs::path& name) {
    do {
        path_ = fs::canonical(fs::temp_directory_path()) / name;
        path_ += std::to_string(std::random_device{}());
    } while (!fs::create_directory(path_));
    fs::permissions(path_, fs::perms::owner_all);
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

TestRuntime::TestRuntime() : TestFolder("wrenlink-test-") {
    for (const char* folder : {"adapters", "objects"}) fs::create_directory(path() / folder);
    setEnvironment("WRENLINK_RUNTIME_DIR", path().string());
}

TestRuntime::~TestRuntime() { setEnvironment("WRENLINK_RUNTIME_DIR", ""); }

std::string TestRuntime::name(const std::string& base) const {
    return path().filename().string() + ' ' + base;
}

}  // namespace wrenlink::test
