// Files of chip words: raw, two bytes a word, the low byte first, whatever the host.
//
// Threads: the functions keep no state. Failures are thrown as Failure (ExitCode::failed) and name
// the file.
#ifndef WREN_WORD_FILE_H
#define WREN_WORD_FILE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace wren {

// Reads a whole file of at least one and at most mostWords words. A file of an odd number of bytes
// is refused, and so is one that is longer.
std::vector<std::uint16_t> readWordFile(const std::string& path, std::size_t mostWords);

// Writes a file completely or not at all: an existing one is replaced once the new one is complete,
// and keeps its permissions. A path that is no ordinary file, such as a device, is written to.
void writeWordFile(const std::string& path, std::span<const std::uint16_t> words);

}  // namespace wren

#endif
