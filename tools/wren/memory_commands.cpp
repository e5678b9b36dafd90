#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "failure.h"
#include "files.h"
#include "transfer.h"

namespace wren {

namespace {

// Where the adapter's id goes in the name of a file.
constexpr std::string_view kIdPlace = "{id}";

std::string fileFor(std::string name, const Report& report) {
    const std::size_t place = name.find(kIdPlace);
    return place != std::string::npos ? name.replace(place, kIdPlace.size(), report.adapter())
                                      : name;
}

Segments readInPlaceOf(const Segments& image, Adapter& adapter, const char* doing = "comparing") {
    Segments found = image;
    readSegments(adapter, found, doing);
    return found;
}

// Shows the first words that differ, as expected and as found.
void showDifferences(Report& report, const Segments& expected, const Segments& found,
                     std::size_t most) {
    report.result()["differing"] = wordCount(expected);
    Json& list = report.result()["differences"] = Json::array();
    for (std::size_t i = 0; i < expected.size(); ++i) {
        for (std::size_t at = 0; at < expected[i].words.size() && list.size() < most; ++at) {
            const std::size_t address = expected[i].address + at;
            const std::uint16_t wanted = expected[i].words[at];
            const std::uint16_t there = found[i].words[at];
            report.print("0x{:04x}: expected 0x{:04x}, found 0x{:04x}\n", address, wanted, there);
            list.push_back({{"address", address}, {"expected", wanted}, {"found", there}});
        }
    }
}

// Compares the chip with an image, and throws when it differs.
void requireSame(Adapter& adapter, const Segments& image, std::size_t mostListed,
                 const char* doing) {
    const Segments found = readInPlaceOf(image, adapter, doing);
    const Segments expected = differing(image, found);
    showDifferences(adapter.report, expected, differing(found, image), mostListed);
    if (expected.empty()) return;
    const std::string differ = fmt::format("{} of {} differ", wordCount(expected), placeOf(image));
    if (adapter.turn.isHeld()) throw Failure(ExitCode::differs, differ);
    throw Failure(ExitCode::differs, "another host may have been at work: " + differ,
                  "let others finish, and try again");
}

void verify(Adapter& adapter, const Segments& written) try {
    requireSame(adapter, written, CompareRequest().mostListed, "verifying");
} catch (Failure& failure) {
    if (failure.exitCode() == ExitCode::differs && failure.hint().empty())
        failure.setHint(remedyFor(SPIFNS_ERROR_ADAPTER).hint);
    throw;
}

// Tells what would be written where.
void tellPlan(Report& report, const Segments& pieces, const char* done) {
    Json& list = report.result()["would_write"] = Json::array();
    for (const Segment& piece : pieces) {
        report.print("0x{:04x}: {}\n", piece.address, countOf(piece.words.size()));
        list.push_back({{"address", piece.address}, {"count", piece.words.size()}});
    }
    report.say("{} would be {}\n", pieces.empty() ? "nothing" : placeOf(pieces), done);
}

// Writes an image as the user wants it, and reports.
Work writeImage(Segments image, const WriteManner& manner, const char* done) {
    return [image = std::move(image), &manner, done](Adapter& adapter) {
        Report& report = adapter.report;
        report.setMemory(image);
        const Segments pieces =
            manner.changedOnly ? differing(image, readInPlaceOf(image, adapter)) : image;
        report.result().update({{"written", 0}, {"verified", false}});
        if (manner.dryRun) return tellPlan(report, pieces, done);
        writeSegments(adapter, pieces);
        if (manner.verify) verify(adapter, pieces);
        report.result()["verified"] = manner.verify;
        const std::size_t total = wordCount(image);
        const std::size_t left = total - wordCount(pieces);
        const std::string saved = manner.changedOnly
                                      ? fmt::format(", {} of {} ({} %) left as they were", left,
                                                    total, 100 * left / total)
                                      : "";
        report.say("{} {}{}{}, CRC-32 {}\n", pieces.empty() ? "nothing" : placeOf(pieces), done,
                   manner.verify && !pieces.empty() ? " and verified" : "", saved, crcOf(image));
    };
}

}  // namespace

Work readMemory(const ReadRequest& request, const Context& context) {
    const Region region = makeRegion(*request.address, *request.count);
    const std::string file = request.file.value_or("-");
    const ImageFormat& format = request.format.formatFor(file);
    if (context.output.isJson() && request.file == "-")
        throw Failure(ExitCode::usage, "--json and --output - would mix on standard output");
    const bool perAdapter = !request.file || file.find(kIdPlace) != std::string::npos;
    if (context.connection.namesSeveral() && !perAdapter)
        throw Failure(ExitCode::usage, fmt::format("several adapters would share '{}'", file),
                      fmt::format("name a file with {} in its name", kIdPlace));
    return [region, &format, &request](Adapter& adapter) {
        Segments segments{{region.address, std::vector<std::uint16_t>(region.count)}};
        Report& report = adapter.report;
        report.setPlace(segments);
        readSegments(adapter, segments);
        report.setMemory(segments);
        const std::string contents = format.print(segments, request.format.endian);
        if (!request.file) {
            report.result()["words"] = segments.front().words;
            report.remark("{}, CRC-32 {}\n", placeOf(segments), crcOf(segments));
            report.print("{}", contents);
            return;
        }
        const std::string target = fileFor(*request.file, report);
        writeFile(target, contents);
        report.result()["file"] = target;
        report.result()["format"] = std::string(format.name);
        if (target != "-")
            report.say("{} read into {}, CRC-32 {}\n", placeOf(segments), target, crcOf(segments));
    };
}

Work writeMemory(const WriteRequest& request) {
    return writeImage(loadImage(request.source), request.manner, "written");
}

Work fillMemory(const FillRequest& request) {
    const Region region = makeRegion(*request.address, *request.count);
    Segment segment{region.address, {}};
    for (std::size_t i = 0; i < region.count; ++i)
        segment.words.push_back(request.pattern[i % request.pattern.size()]);
    return writeImage({std::move(segment)}, request.manner, "filled");
}

Work compareMemory(const CompareRequest& request) {
    return [image = loadImage(request.source), most = request.mostListed](Adapter& adapter) {
        adapter.report.setMemory(image);
        requireSame(adapter, image, most, "comparing");
        adapter.report.say("{} are the same, CRC-32 {}\n", placeOf(image), crcOf(image));
    };
}

}  // namespace wren
