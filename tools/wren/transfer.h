// Transfers of any length up to the whole chip memory: cut into chunks that one action can carry,
// with a report after each.
//
// Threads: as the Session's. Failures of the library are thrown as Failure; the chunks before stay
// done.
#ifndef WREN_TRANSFER_H
#define WREN_TRANSFER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "session.h"

namespace wren {

inline constexpr std::size_t kMemoryWords = 0x10000;

// Is told the number of words that are done; what it throws ends the transfer there.
using Progress = std::function<void(std::size_t)>;

// A word of chip memory that is not what it should be.
struct Difference {
    std::uint32_t address;
    std::uint16_t expected;
    std::uint16_t found;
};

// What a comparison found: how many words differ, and the first few of them.
struct Comparison {
    static constexpr std::size_t kMostListed = 8;
    std::size_t differing = 0;
    std::vector<Difference> first;
};

void readWords(Session& session, std::uint32_t address, std::span<std::uint16_t> words,
               const Progress& progress);
void writeWords(Session& session, std::uint32_t address, std::span<const std::uint16_t> words,
                const Progress& progress);
// Reads as many words as are expected from an address on, and compares.
Comparison compareWords(Session& session, std::uint32_t address,
                        std::span<const std::uint16_t> expected, const Progress& progress);

}  // namespace wren

#endif
