// How many times as long as in the test command the tests' loops run.
#ifndef WRENLINK_TESTS_SUPPORT_SCALE_H
#define WRENLINK_TESTS_SUPPORT_SCALE_H

#include <cstdlib>
#include <string>

namespace wrenlink::test {

// The whole number in WRENLINK_TEST_SCALE, or 1 when the environment has none. Throws when it holds
// anything else.
inline unsigned scale() {
    const char* text = std::getenv("WRENLINK_TEST_SCALE");
    return text == nullptr ? 1 : static_cast<unsigned>(std::stoul(text));
}

}  // namespace wrenlink::test

#endif
