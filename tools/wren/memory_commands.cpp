#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "files.h"
#include "remedies.h"
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

Json jsonOf(const Comparison& comparison) {
    Json list = Json::array();
    for (const Difference& word : comparison.first)
        list.push_back(
            {{"address", word.address}, {"expected", word.expected}, {"found", word.found}});
    return list;
}

// Compares the chip with an image, shows the first differences, and throws when there are any.
void requireSame(Adapter& adapter, const Segments& image, std::size_t mostListed) {
    const Comparison comparison = compareSegments(adapter, image, mostListed);
    Json& result = adapter.report.result();
    result["differing"] = comparison.differing;
    result["differences"] = jsonOf(comparison);
    if (comparison.differing == 0) return;
    for (const Difference& word : comparison.first)
        adapter.report.print("0x{:04x}: expected 0x{:04x}, found 0x{:04x}\n", word.address,
                             word.expected, word.found);
    const std::string differ =
        fmt::format("{} of {} words differ", comparison.differing, wordCount(image));
    if (adapter.turn.isHeld()) throw Failure(ExitCode::differs, differ);
    throw Failure(ExitCode::differs, "another host may have been at work: " + differ,
                  "let others finish, and try again");
}

// Writes an image, compares it if asked to, and reports.
Work writeImage(Segments image, bool verify, const char* done) {
    return [image = std::move(image), verify, done](Adapter& adapter) {
        Json& result = adapter.report.result();
        adapter.report.setMemory(image);
        writeSegments(adapter, image);
        result["written"] = wordCount(image);
        result["verified"] = verify;
        if (verify) {
            try {
                requireSame(adapter, image, CompareRequest().mostListed);
            } catch (Failure& failure) {
                if (failure.exitCode() == ExitCode::differs && failure.hint().empty())
                    failure.setHint(remedyFor(SPIFNS_ERROR_ADAPTER).hint);
                throw;
            }
        }
        adapter.report.say("{} {}{}, CRC-32 {}\n", placeOf(image), done,
                           verify ? " and verified" : "", crcOf(image));
    };
}

}  // namespace

Work readMemory(const ReadRequest& request, const Context& context) {
    const Region region = request.region.resolve();
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
        readSegments(adapter, segments);

        Report& report = adapter.report;
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
    return writeImage(loadImage(request.source), request.verify, "written");
}

Work fillMemory(const FillRequest& request) {
    std::span numbers(request.numbers);
    const std::size_t ofRegion = request.region ? 0 : 2;
    if (numbers.size() <= ofRegion)
        throw Failure(ExitCode::usage,
                      "give ADDR COUNT WORDS..., or --region START:COUNT WORDS...");
    const Region region = request.region ? *request.region : makeRegion(numbers[0], numbers[1]);
    numbers = numbers.subspan(ofRegion);
    if (std::ranges::max(numbers) > 0xFFFF)
        throw Failure(ExitCode::usage, "words go from 0 to 0xffff");
    Segment segment{region.address, {}};
    for (std::size_t i = 0; i < region.count; ++i)
        segment.words.push_back(static_cast<std::uint16_t>(numbers[i % numbers.size()]));
    return writeImage({std::move(segment)}, request.verify, "filled");
}

Work compareMemory(const CompareRequest& request) {
    return [image = loadImage(request.source), most = request.mostListed](Adapter& adapter) {
        adapter.report.setMemory(image);
        requireSame(adapter, image, most);
        adapter.report.say("{} are the same, CRC-32 {}\n", placeOf(image), crcOf(image));
    };
}

}  // namespace wren
