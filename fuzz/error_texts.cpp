// Texts through the error store, against a plain string: each store replaces, each append adds,
// and 1023 characters are kept.
#include <string>

#include "fuzz/harness.h"
#include "quill/last_error.h"

namespace wrenlink::fuzz {
namespace {

constexpr std::size_t kKept = 1023;
constexpr std::size_t kLongest = 1400;

void step(FuzzedDataProvider& input, test::Failure& expected) {
    switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0:
        case 1: {
            expected = {input.ConsumeIntegral<int>(), input.ConsumeIntegral<std::uint32_t>(),
                        textFrom(input, kLongest)};
            const int result =
                Quill_SetLastError(expected.code, expected.address, "%s", expected.text.c_str());
            require(result == (expected.code != 0 ? 1 : 0), "a store tells whether it is an error");
            break;
        }
        case 2:
        case 3: {
            const std::string more = textFrom(input, kLongest);
            if (!more.empty()) expected.text += ": " + more;
            const int result = Quill_AppendToLastError(more.c_str());
            require(result == (expected.code != 0 ? 1 : 0), "so does an append");
            break;
        }
        default:
            Quill_ClearLastError();
            expected = {};
    }
    if (expected.text.size() > kKept) expected.text.resize(kKept);
}

}  // namespace

void run(FuzzedDataProvider& input) {
    test::Failure expected;
    Quill_ClearLastError();
    while (input.remaining_bytes() > 0) {
        step(input, expected);
        require(test::lastFailure() == expected, "the store holds what was put there");
    }
}

}  // namespace wrenlink::fuzz
