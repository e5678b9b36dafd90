#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "commands.h"
#include "hex_view.h"
#include "interruption.h"
#include "terminal.h"
#include "transfer.h"

namespace wren {

namespace {

using Words = std::vector<std::uint16_t>;

// False when the user interrupts the wait.
bool waitFor(double seconds) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kStep(20);
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    while (!interrupted() && Clock::now() < end) std::this_thread::sleep_for(kStep);
    return !interrupted();
}

// The view, with the words marked that changed; where it cannot be shown in place, the lines that
// hold such words.
void showChanges(Output& output, const Segment& segment, const Words& before) {
    const bool inPlace = terminal::takesSequences(stdout);
    if (inPlace) output.print("\x1b[H\x1b[J");
    const std::span words(segment.words);
    for (std::size_t at = 0; at < words.size(); at += kWordsPerLine) {
        const std::size_t count = std::min(kWordsPerLine, words.size() - at);
        const auto line = words.subspan(at, count);
        const auto lineBefore = before.empty() ? std::span<const std::uint16_t>()
                                               : std::span(before).subspan(at, count);
        if (inPlace || before.empty() || !std::ranges::equal(line, lineBefore))
            output.print(
                "{}", hexLine(segment.address + static_cast<std::uint32_t>(at), line, lineBefore));
    }
}

void fillResult(Json& result, const Segment& segment, const Words& before) {
    result["address"] = segment.address;
    result["count"] = segment.words.size();
    result["words"] = segment.words;
    if (before.empty()) return;
    result["changed"] = Json::array();
    for (std::size_t i = 0; i < before.size(); ++i)
        if (segment.words[i] != before[i]) result["changed"].push_back(segment.address + i);
}

void watch(Context& context, Session& session, Segment& segment, const DumpRequest& request) {
    Words before;
    for (std::uint64_t look = 1;; ++look) {
        readSegments(session, {&segment, 1});
        if (segment.words != before) {
            showChanges(context.output, segment, before);
            fillResult(context.output.result(), segment, before);
            context.output.finishRound();
        }
        before = segment.words;
        if (look == request.mostLooks) return;
        if (!waitFor(*request.watchSeconds)) throw Failure(ExitCode::interrupted, "interrupted");
    }
}

}  // namespace

void dumpMemory(Context& context, const DumpRequest& request) {
    constexpr std::uint32_t kUsualCount = 128;
    const Region region = request.region.resolve(kUsualCount);
    Connected session(context);
    Segment segment{region.address, Words(region.count)};
    if (request.watchSeconds) return watch(context, session, segment, request);
    readSegments(session, {&segment, 1});
    context.output.print("{}", hexView(segment));
    fillResult(context.output.result(), segment, {});
}

}  // namespace wren
