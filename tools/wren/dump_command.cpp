#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "hex_view.h"
#include "interruption.h"
#include "terminal.h"
#include "transfer.h"

namespace wren {

namespace {

using Words = std::vector<std::uint16_t>;

// The view, with the words marked that changed; where it cannot be shown in place, the lines that
// hold such words.
void showChanges(Report& report, const Segment& segment, const Words& before) {
    const bool inPlace = terminal::takesSequences(stdout);
    if (inPlace) report.print("\x1b[H\x1b[J");
    const std::span words(segment.words);
    for (std::size_t at = 0; at < words.size(); at += kWordsPerLine) {
        const std::size_t count = std::min(kWordsPerLine, words.size() - at);
        const auto line = words.subspan(at, count);
        const auto lineBefore = before.empty() ? std::span<const std::uint16_t>()
                                               : std::span(before).subspan(at, count);
        if (inPlace || before.empty() || !std::ranges::equal(line, lineBefore))
            report.print(
                "{}", hexLine(segment.address + static_cast<std::uint32_t>(at), line, lineBefore));
    }
}

void fillResult(Report& report, const Segment& segment, const Words& before) {
    report.setMemory({&segment, 1});
    Json& result = report.result();
    result["words"] = segment.words;
    if (before.empty()) return;
    result["changed"] = Json::array();
    for (std::size_t i = 0; i < before.size(); ++i)
        if (segment.words[i] != before[i]) result["changed"].push_back(segment.address + i);
}

// Ctrl-C is its usual end.
void watch(Adapter& adapter, Segment& segment, const DumpRequest& request) try {
    Words before;
    for (std::uint64_t look = 1;; ++look) {
        readSegments(adapter, {&segment, 1});
        if (segment.words != before) {
            showChanges(adapter.report, segment, before);
            fillResult(adapter.report, segment, before);
            adapter.context.output.finishRound();
        }
        before = segment.words;
        if (look == request.mostLooks) return;
        adapter.turn.give();
        if (!waitFor(*request.watchSeconds)) return;
        adapter.turn.resume();
    }
} catch (const Failure& failure) {
    if (failure.exitCode() != ExitCode::interrupted) throw;
}

}  // namespace

Work dumpMemory(const DumpRequest& request, const Context& context) {
    constexpr std::size_t kUsualCount = 128;
    const std::uint32_t start = request.address.value_or(0);
    const Region region =
        makeRegion(start, request.count.value_or(std::min(kUsualCount, kMemoryWords - start)));
    if (request.watchSeconds && context.connection.namesSeveral())
        throw Failure(ExitCode::usage, "--watch looks at one adapter");
    return [request, region](Adapter& adapter) {
        Segment segment{region.address, Words(region.count)};
        adapter.report.setPlace({&segment, 1});
        if (request.watchSeconds) return watch(adapter, segment, request);
        readSegments(adapter, {&segment, 1});
        adapter.report.remark("{}, CRC-32 {}\n", placeOf({&segment, 1}), crcOf({&segment, 1}));
        adapter.report.print("{}", hexView(segment));
        fillResult(adapter.report, segment, {});
    };
}

}  // namespace wren
