#include "transfer.h"

#include <fmt/format.h>

#include <algorithm>

#include "failure.h"
#include "image_source.h"
#include "interruption.h"
#include "progress.h"

namespace wren {

namespace {

// What fills four exchanges with the adapter: large enough to keep it busy, small enough for a bar
// that moves and a Ctrl-C that is heard. A further piece costs as much as some words more.
constexpr std::size_t kChunkWords = std::size_t{4} * 504;
constexpr std::size_t kPieceWords = 4;

// One pass over the words of all segments.
class Pass {
   public:
    Pass(Adapter& adapter, const char* doing, std::size_t total)
        : session_(adapter.session),
          doing_(doing),
          total_(total),
          progress_(adapter, doing, total) {
        noteInterrupts();
    }

    // Calls work(actions) for each chunk in turn; the actions have this type. Those that read fill
    // the segments, which must not be constants then.
    template <class Work>
    void run(std::uint32_t type, std::span<const Segment> segments, Work work) {
        if (segments.empty()) return;
        session_.step(fmt::format("{} {}", doing_, placeOf(segments)));
        std::vector<SpiAction> actions;
        std::size_t taken = 0;
        const auto finishChunk = [&] {
            if (actions.empty()) return;
            step([&] { work(actions); });
            for (const SpiAction& action : actions) done_ += action.u.memory.length;
            progress_.update(done_);
            actions.clear();
            taken = 0;
        };
        for (const Segment& segment : segments) {
            auto* const words = const_cast<std::uint16_t*>(segment.words.data());
            for (std::size_t at = 0; at < segment.words.size();) {
                const std::size_t count = std::min(kChunkWords - taken, segment.words.size() - at);
                actions.push_back(memoryAction(
                    type, segment.address + static_cast<std::uint32_t>(at), words + at, count));
                at += count;
                taken += count + kPieceWords;
                if (taken >= kChunkWords) finishChunk();
            }
        }
        finishChunk();
        session_.step(fmt::format("{} done", doing_));
    }

   private:
    template <class Work>
    void step(Work work) {
        try {
            if (interrupted()) throw Failure(ExitCode::interrupted, "interrupted");
            work();
        } catch (Failure& failure) {
            // The chunk that failed may be done in part; that it failed says all of the only one.
            const bool exact = failure.exitCode() == ExitCode::interrupted;
            if (!exact && total_ <= kChunkWords) throw;
            failure.setProgress(fmt::format("after {} {}{} of {} words", doing_,
                                            exact ? "" : "at least ", done_, total_));
            throw;
        }
    }

    const Session& session_;
    const char* doing_;
    std::size_t total_;
    std::size_t done_ = 0;
    Progress progress_;
};

bool canRead(Session& session, const Region& region) try {
    std::vector<std::uint16_t> words(region.count);
    session.read(region.address, words);
    return true;
} catch (const Failure& failure) {
    if (failure.errorCode() != SPIFNS_ERROR_ADAPTER) throw;
    return false;
}

// The halves of regions that cannot be read.
std::vector<Region> unreadableHalves(Session& session, const std::vector<Region>& regions) {
    std::vector<Region> unreadable;
    for (const Region& region : regions) {
        const std::uint32_t half = (region.count + 1) / 2;
        for (const Region& part :
             {Region{region.address, half}, Region{region.address + half, region.count - half}})
            if (part.count > 0 && !canRead(session, part)) unreadable.push_back(part);
    }
    return unreadable;
}

// The words of regions that cannot be read; with others near them when they are very many.
std::vector<Region> unreadableWords(Session& session, std::vector<Region> regions) {
    constexpr std::size_t kVeryMany = 256;
    while (regions.size() <= kVeryMany && !interrupted() &&
           std::ranges::any_of(regions, [](const Region& region) { return region.count > 1; }))
        regions = unreadableHalves(session, regions);
    std::vector<Region> joined;
    for (const Region& region : regions) {
        if (!joined.empty() && joined.back().address + joined.back().count == region.address)
            joined.back().count += region.count;
        else
            joined.push_back(region);
    }
    return joined;
}

// Names the words that cannot be read, if the adapter says that there are such.
void read(Session& session, std::span<SpiAction> actions) try {
    session.submit(actions);
} catch (Failure& failure) {
    if (failure.errorCode() != SPIFNS_ERROR_ADAPTER) throw;
    session.step("reading halves of what could not be read");
    const auto narrower = failureOf([&] {
        std::vector<Region> regions;
        for (const SpiAction& action : actions)
            if (const Region region{action.u.memory.address, action.u.memory.length};
                actions.size() == 1 || !canRead(session, region))
                regions.push_back(region);
        const auto found = unreadableWords(session, std::move(regions));
        if (!found.empty()) failure.setWords(found);
    });
    throw;
}

}  // namespace

void readSegments(Adapter& adapter, std::span<Segment> segments, const char* doing) {
    Pass(adapter, doing, wordCount(segments))
        .run(SPIFNS_READ, segments,
             [&](std::span<SpiAction> actions) { read(adapter.session, actions); });
}

void writeSegments(Adapter& adapter, std::span<const Segment> segments) {
    std::size_t written = 0;
    const auto write = [&](std::span<SpiAction> actions) {
        adapter.session.submit(actions);
        for (const SpiAction& action : actions) written += action.u.memory.length;
        adapter.report.result()["written"] = written;
    };
    Pass(adapter, "writing", wordCount(segments)).run(SPIFNS_WRITE, segments, write);
}

}  // namespace wren
