// What a host must be told of exchanges with an adapter, worked out from the bytes that travelled
// and from nothing else. Pure functions.
#ifndef WRENLINK_TESTS_EXPORTS_ORACLE_H
#define WRENLINK_TESTS_EXPORTS_ORACLE_H

#include <cstdint>
#include <string>
#include <vector>

#include "tests/exports/host.h"

namespace wrenlink::test {

using Bytes = std::vector<std::uint8_t>;

// One exchange: the frame that was sent, and either the reply's bytes, however many there are, or
// how the exchange failed: code, and the text that the operation's own words are appended to.
struct Exchange {
    Bytes frame;
    Bytes reply;
    Failure failure;

    unsigned code() const { return unsigned{frame[5]} << 8 | frame[6]; }
    bool isBatch() const { return code() == 0x0100 || code() == 0x0200 || code() == 0x0F00; }
};

// Stand for a word of the host that nothing was written to, and for one that may hold anything.
inline constexpr int kUntouched = 0x10000;
inline constexpr int kAnything = 0x20000;

struct Told {
    Failure failure;                 // the last error; code 0 when all went well
    std::vector<std::string> texts;  // for the debug callback
    // Of reads and MGCMDs the host's words; of a version, a delay or an XAP state that value, or
    // what stands for none.
    std::vector<int> words;

    // Compares words that held `untouched` before; those that no exchange was about are untouched.
    bool agreesWith(const std::vector<int>& found, int untouched) const;
};

// What the exchanges of one call come to.
Told tell(const std::vector<Exchange>& exchanges);

}  // namespace wrenlink::test

#endif
