#include <cstdlib>

#include "tests/support/test_runtime.h"

namespace wrenlink::test {

void setEnvironment(const std::string& name, const std::string& value) {
    value.empty() ? ::unsetenv(name.c_str()) : ::setenv(name.c_str(), value.c_str(), 1);
}

SharedDocuments::SharedDocuments() : TestFolder(u8"wrenlink-d\u00f6cuments-\u2602-") {
    setEnvironment("WRENLINK_DOCUMENTS_DIR", path());
}

SharedDocuments::~SharedDocuments() { setEnvironment("WRENLINK_DOCUMENTS_DIR", ""); }

}  // namespace wrenlink::test
