// Where the words that a command works with come from, and where they belong.
//
// Threads: the functions keep no state. Failures are thrown as Failure, before anything is sent.
#ifndef WREN_IMAGE_SOURCE_H
#define WREN_IMAGE_SOURCE_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "image.h"
#include "image_format.h"

namespace wren {

struct FormatChoice {
    std::string name;  // of the format; told by the file's name when empty
    Endian endian = Endian::little;

    // Throws when neither tells, and when a file that is there holds something else than its name
    // tells.
    const ImageFormat& formatFor(const std::string& file, std::string_view contents = {}) const;
};

// Words of the command line, from an address on, or those of a file.
struct ImageSource {
    std::optional<std::uint32_t> address;
    std::vector<std::uint16_t> words;
    std::string file;  // replaces words unless empty
    FormatChoice format;
};

// The words where they belong.
Segments loadImage(const ImageSource& source);

// "3 words from 0x0100 on", "5 words in 2 pieces from 0x0000 to 0x1234".
std::string placeOf(std::span<const Segment> segments);

}  // namespace wren

#endif
