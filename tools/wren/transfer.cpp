#include "transfer.h"

#include <algorithm>

namespace wren {

namespace {

// Large enough to keep the adapter busy, small enough for a progress bar that moves.
constexpr std::size_t kChunkWords = 0x2000;

// Calls work(address, chunk) for each chunk in turn.
template <class Word, class Work>
void forEachChunk(std::uint32_t address, std::span<Word> words, const Progress& progress,
                  Work work) {
    for (std::size_t done = 0; done < words.size();) {
        const auto chunk = words.subspan(done, std::min(kChunkWords, words.size() - done));
        work(address + static_cast<std::uint32_t>(done), chunk);
        done += chunk.size();
        progress(done);
    }
}

void compareChunk(std::uint32_t address, std::span<const std::uint16_t> expected,
                  std::span<const std::uint16_t> found, Comparison& comparison) {
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (expected[i] == found[i]) continue;
        ++comparison.differing;
        if (comparison.first.size() < Comparison::kMostListed)
            comparison.first.push_back(
                {address + static_cast<std::uint32_t>(i), expected[i], found[i]});
    }
}

}  // namespace

void readWords(Session& session, std::uint32_t address, std::span<std::uint16_t> words,
               const Progress& progress) {
    forEachChunk(address, words, progress, [&](std::uint32_t at, std::span<std::uint16_t> chunk) {
        session.read(at, chunk);
    });
}

void writeWords(Session& session, std::uint32_t address, std::span<const std::uint16_t> words,
                const Progress& progress) {
    forEachChunk(
        address, words, progress,
        [&](std::uint32_t at, std::span<const std::uint16_t> chunk) { session.write(at, chunk); });
}

Comparison compareWords(Session& session, std::uint32_t address,
                        std::span<const std::uint16_t> expected, const Progress& progress) {
    Comparison comparison;
    std::vector<std::uint16_t> found(std::min(kChunkWords, expected.size()));
    forEachChunk(address, expected, progress,
                 [&](std::uint32_t at, std::span<const std::uint16_t> chunk) {
                     const auto answer = std::span(found).first(chunk.size());
                     session.read(at, answer);
                     compareChunk(at, chunk, answer, comparison);
                 });
    return comparison;
}

}  // namespace wren
