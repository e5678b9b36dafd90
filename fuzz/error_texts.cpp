// Texts through the error store, against a plain string: each store replaces, each append adds,
// and 1023 characters are kept.
#include <fuzzer/FuzzedDataProvider.h>

#include <string>

#include "fuzz/harness.h"
#include "quill/last_error.h"

namespace wrenlink::fuzz {
namespace {

constexpr std::size_t kKept = 1023;

// A text as C has it, up to its first NUL.
std::string text(FuzzedDataProvider& input) {
    const std::string bytes = input.ConsumeRandomLengthString(1400);
    return bytes.substr(0, bytes.find('\0'));
}

void step(FuzzedDataProvider& input, test::Failure& expected) {
    switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0:
        case 1: {
            expected = {input.ConsumeIntegral<int>(), input.ConsumeIntegral<std::uint32_t>(),
                        text(input)};
            const int result =
                Quill_SetLastError(expected.code, expected.address, "%s", expected.text.c_str());
            require(result == (expected.code != 0 ? 1 : 0), "a store tells whether it is an error");
            break;
        }
        case 2:
        case 3: {
            const std::string more = text(input);
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
}  // namespace wrenlink::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace wrenlink;
    FuzzedDataProvider input(data, size);
    test::Failure expected;
    Quill_ClearLastError();
    while (input.remaining_bytes() > 0) {
        fuzz::step(input, expected);
        fuzz::require(test::lastFailure() == expected, "the store holds what was put there");
    }
    return 0;
}
