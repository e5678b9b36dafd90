#include <nlohmann/json.hpp>

#include "commands.h"
#include "files.h"
#include "remedies.h"
#include "transfer.h"

namespace wren {

namespace {

Json jsonOf(const Comparison& comparison) {
    Json list = Json::array();
    for (const Difference& word : comparison.first)
        list.push_back(
            {{"address", word.address}, {"expected", word.expected}, {"found", word.found}});
    return list;
}

// Compares the chip with an image, shows the first differences, and throws when there are any.
void requireSame(Context& context, Session& session, const Segments& image,
                 std::size_t mostListed) {
    const Comparison comparison = compareSegments(session, image, mostListed);
    Json& result = context.output.result();
    result["count"] = wordCount(image);
    result["differing"] = comparison.differing;
    result["differences"] = jsonOf(comparison);
    if (comparison.differing == 0) return;
    for (const Difference& word : comparison.first)
        context.output.print("0x{:04x}: expected 0x{:04x}, found 0x{:04x}\n", word.address,
                             word.expected, word.found);
    throw Failure(ExitCode::differs,
                  fmt::format("{} of {} words differ", comparison.differing, wordCount(image)));
}

// Writes an image, compares it if asked to, and reports.
void writeImage(Context& context, const Segments& image, bool verify, const char* done) {
    Connected session(context);
    writeSegments(session, image);
    Json& result = context.output.result();
    result["written"] = wordCount(image);
    result["verified"] = verify;
    if (verify) {
        try {
            requireSame(context, session, image, CompareRequest().mostListed);
        } catch (Failure& failure) {
            if (failure.exitCode() == ExitCode::differs)
                failure.setHint(remedyFor(SPIFNS_ERROR_ADAPTER).hint);
            throw;
        }
    }
    context.output.print("{} {}{}\n", placeOf(image), done, verify ? " and verified" : "");
}

}  // namespace

void readMemory(Context& context, const ReadRequest& request) {
    const Region region = request.region.resolve();
    const std::string file = request.file.value_or("-");
    const ImageFormat& format = request.format.formatFor(file);
    if (context.output.isJson() && request.file == "-")
        throw Failure(ExitCode::usage, "--json and --output - would mix on standard output");
    Connected session(context);
    Segments segments{{region.address, std::vector<std::uint16_t>(region.count)}};
    readSegments(session, segments);

    Json& result = context.output.result();
    result["address"] = region.address;
    result["count"] = region.count;
    if (file != "-") {
        result["file"] = file;
        result["format"] = std::string(format.name);
        writeFile(file, format.print(segments, request.format.endian));
        context.output.print("{} read into {}\n", placeOf(segments), file);
    } else if (context.output.isJson()) {
        result["words"] = segments.front().words;
    } else {
        writeFile(file, format.print(segments, request.format.endian));
    }
}

void writeMemory(Context& context, const WriteRequest& request) {
    writeImage(context, loadImage(request.source), request.verify, "written");
}

void fillMemory(Context& context, const FillRequest& request) {
    Segment segment{request.region.address, {}};
    for (std::size_t i = 0; i < request.region.count; ++i)
        segment.words.push_back(request.pattern[i % request.pattern.size()]);
    writeImage(context, {std::move(segment)}, request.verify, "filled");
}

void compareMemory(Context& context, const CompareRequest& request) {
    const Segments image = loadImage(request.source);
    Connected session(context);
    requireSame(context, session, image, request.mostListed);
    context.output.print("{} are the same\n", placeOf(image));
}

}  // namespace wren
