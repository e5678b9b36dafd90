// Numbers as the C library reads them, where `long` has 32 bits.
#ifndef WRENLINK_TESTS_SUPPORT_C_NUMBERS_H
#define WRENLINK_TESTS_SUPPORT_C_NUMBERS_H

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace wrenlink::test {

// strtoul in base 10.
inline std::uint32_t readUnsigned(const char* text, char** end) {
    errno = 0;
    const unsigned long long value = std::strtoull(text, end, 10);
    const bool negative = text[std::strspn(text, " \t\n\v\f\r")] == '-';
    const unsigned long long magnitude = negative ? 0 - value : value;
    if (errno == ERANGE || magnitude > 0xFFFFFFFF) return 0xFFFFFFFF;
    return static_cast<std::uint32_t>(value);
}

// strtol in base 0.
inline std::int32_t readSigned(const char* text) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp<long long>(std::strtoll(text, nullptr, 0), Limits::min(), Limits::max()));
}

}  // namespace wrenlink::test

#endif
