#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "tests/support/machine.h"

namespace wrenlink::test {
namespace {

constexpr char kDocuments[] = "WRENLINK_DOCUMENTS_DIR";

}  // namespace

void setEnvironment(const std::string& name, const std::string& value) {
    if (value.empty())
        ::unsetenv(name.c_str());
    else
        ::setenv(name.c_str(), value.c_str(), 1);
}

SharedDocuments::SharedDocuments() {
    std::string pattern =
        std::filesystem::temp_directory_path() / "wrenlink-d\u00f6cuments-\u2602-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), pattern);
    path_ = pattern;
    setEnvironment(kDocuments, path_);
}

SharedDocuments::~SharedDocuments() {
    setEnvironment(kDocuments, "");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace wrenlink::test
