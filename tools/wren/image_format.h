// The formats of files that hold chip words.
//
// raw   the words' bytes, from an address that the user gives
// hex   Intel HEX; its addresses count bytes, two to a word
// text  lines of "address: words", in hexadecimal; what follows '#' or '|' is a comment
//
// Threads: pure functions.
#ifndef WREN_IMAGE_FORMAT_H
#define WREN_IMAGE_FORMAT_H

#include <cstddef>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "image.h"

namespace wren {

// Which byte of a word comes first.
enum class Endian { little, big };

// Why contents are not of a format; what() is one line, with the number of the line it is about.
class FormatError : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
    FormatError(std::size_t line, const std::string& text);
};

struct ImageFormat {
    std::string_view name;
    std::span<const std::string_view> suffixes;  // of file names, in lower case
    bool hasAddresses;
    // Throws FormatError. Raw words start at address 0. There is at least one word.
    Segments (*parse)(std::string_view contents, Endian endian);
    std::string (*print)(std::span<const Segment> segments, Endian endian);
};

// The formats in the order in which they are offered.
std::span<const ImageFormat> imageFormats() noexcept;

// The format of that name, or null.
const ImageFormat* formatByName(std::string_view name) noexcept;

// The format that a file's name tells: text for "-", a standard stream, raw for a name without a
// suffix, such as a device's, and null for a suffix that is not known.
const ImageFormat* formatOfFile(std::string_view path) noexcept;

// What contents are that are not of this format, to all appearances, and what to do with them;
// empty otherwise. The format may be null.
std::string_view contradictionOf(const ImageFormat* format, std::string_view contents) noexcept;

// A word's two bytes in their order.
struct BytePair {
    std::uint8_t first, second;
};
BytePair bytesOf(std::uint16_t word, Endian endian) noexcept;
std::uint16_t wordOf(BytePair bytes, Endian endian) noexcept;

}  // namespace wren

#endif
