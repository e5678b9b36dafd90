// Words between a host's buffer, in host byte order and at any address, and the wire, big-endian.
#ifndef WRENLINK_WRENLINK_WORDS_H
#define WRENLINK_WRENLINK_WORDS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "quill/frame.h"

namespace wrenlink {

inline void wordsToWire(std::uint8_t* wire, const std::uint16_t* words, std::size_t count) {
    const auto* bytes = reinterpret_cast<const char*>(words);
    for (std::size_t i = 0; i < 2 * count; i += 2) {
        std::uint16_t word;
        std::memcpy(&word, bytes + i, sizeof word);
        putBig16(wire + i, word);
    }
}

inline void wordsFromWire(std::uint16_t* words, const std::uint8_t* wire, std::size_t count) {
    auto* bytes = reinterpret_cast<char*>(words);
    for (std::size_t i = 0; i < 2 * count; i += 2) {
        const std::uint16_t word = big16(wire + i);
        std::memcpy(bytes + i, &word, sizeof word);
    }
}

}  // namespace wrenlink

#endif
