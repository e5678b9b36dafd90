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
    if (source.region) return source.region->address;
    failUsage("no address: give ADDR, or --region, or a file that holds addresses");
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

void requireInside(const Segments& segments, const Region& region, const std::string& file) {
    const std::size_t end = std::size_t{region.address} + region.count;
    if (segments.front().address >= region.address && endOf(segments.back()) <= end) return;
    const std::string why = fmt::format("{} do not fit into those from 0x{:04x} to 0x{:04x}",
                                        placeOf(segments), region.address, end - 1);
    if (file.empty()) failUsage(why);
    refuse(file, why);
}

}  // namespace

Region RegionChoice::resolve(std::optional<std::uint32_t> usualCount) const {
    if (region && address) failUsage("give ADDR and COUNT, or --region, not both");
    if (region) return *region;
    if (count && address) return makeRegion(*address, *count);
    if (!usualCount) failUsage("give ADDR and COUNT, or --region START:COUNT");
    const std::uint32_t start = address.value_or(0);
    return {start, std::min(*usualCount, static_cast<std::uint32_t>(kMemoryWords) - start)};
}

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
    requireInside(segments, source.region.value_or(Region{}), source.file);
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
