#include "image_source.h"

#include <fmt/format.h>

#include <algorithm>

#include "failure.h"
#include "files.h"

namespace wren {

namespace {

[[noreturn]] void failUsage(const std::string& text) { throw Failure(ExitCode::usage, text); }

[[noreturn]] void refuse(const std::string& file, const std::string& why) {
    throw Failure(ExitCode::failed, fmt::format("cannot use '{}': {}", file, why));
}

// A file without addresses starts where the user says.
std::uint32_t startOf(const ImageSource& source) {
    if (source.address) return *source.address;
    failUsage("no address: give ADDR, or a file that holds addresses");
}

Segments loadFile(const ImageSource& source) {
    const std::string contents = readFile(source.file);
    const ImageFormat& format = source.format.formatFor(source.file, contents);
    if (format.hasAddresses && source.address)
        failUsage(
            fmt::format("'{}' is taken for a {} file, which has addresses of its own; leave ADDR "
                        "out, or tell its --format",
                        source.file, format.name));
    const std::uint32_t start = format.hasAddresses ? 0 : startOf(source);
    Segments segments = [&] {
        try {
            return format.parse(contents, source.format.endian);
        } catch (const FormatError& error) {
            refuse(source.file, error.what());
        }
    }();
    for (Segment& segment : segments) segment.address += start;
    return segments;
}

std::size_t endOf(const Segment& segment) { return segment.address + segment.words.size(); }

void requireInside(const Segments& segments, const std::string& file) {
    if (endOf(segments.back()) <= kMemoryWords) return;
    const std::string why = placeOf(segments) + " would reach beyond the last word, 0xffff";
    if (file.empty()) failUsage(why);
    refuse(file, why);
}

}  // namespace

const ImageFormat& FormatChoice::formatFor(const std::string& file,
                                           std::string_view contents) const {
    if (!name.empty()) return *formatByName(name);
    const ImageFormat* const format = formatOfFile(file);
    const std::string_view contradiction = contradictionOf(format, contents);
    if (!contradiction.empty()) refuse(file, std::string(contradiction));
    if (format != nullptr) return *format;
    failUsage(fmt::format(
        "the name of '{}' does not tell its format; give --format raw, hex or text", file));
}

Segments loadImage(const ImageSource& source) {
    if (source.words.empty() && source.file.empty())
        failUsage("no words: give ADDR WORDS..., or --input FILE");
    Segments segments =
        source.file.empty() ? Segments{{startOf(source), source.words}} : loadFile(source);
    requireInside(segments, source.file);
    return segments;
}

std::string placeOf(std::span<const Segment> segments) {
    const std::string count = countOf(wordCount(segments));
    const std::uint32_t first = segments.front().address;
    if (segments.size() == 1) return fmt::format("{} from 0x{:04x} on", count, first);
    return fmt::format("{} in {} pieces from 0x{:04x} to 0x{:04x}", count, segments.size(), first,
                       endOf(segments.back()) - 1);
}

}  // namespace wren
