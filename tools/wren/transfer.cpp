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
// that moves and a Ctrl-C that is heard.
constexpr std::size_t kChunkWords = std::size_t{4} * 504;

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

    // Calls work(address, chunk) for each chunk in turn.
    template <class SegmentType, class Work>
    void run(std::span<SegmentType> segments, Work work) {
        session_.step(fmt::format("{} {}", doing_, placeOf(segments)));
        for (SegmentType& segment : segments) {
            const auto words = std::span(segment.words);
            for (std::size_t at = 0; at < words.size();) {
                const auto chunk = words.subspan(at, std::min(kChunkWords, words.size() - at));
                const std::uint32_t address = segment.address + static_cast<std::uint32_t>(at);
                step([&] { work(address, chunk); });
                at += chunk.size();
                done_ += chunk.size();
                progress_.update(done_);
            }
        }
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

// The words of a region that cannot be read; with others near them when they are very many.
std::vector<Region> unreadableWords(Session& session, const Region& whole) {
    constexpr std::size_t kVeryMany = 256;
    std::vector<Region> regions{whole};
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
void read(Session& session, std::uint32_t address, std::span<std::uint16_t> words) try {
    session.read(address, words);
} catch (Failure& failure) {
    if (failure.errorCode() != SPIFNS_ERROR_ADAPTER) throw;
    session.step("reading halves of what could not be read");
    const auto narrower = failureOf([&] {
        const auto found =
            unreadableWords(session, {address, static_cast<std::uint32_t>(words.size())});
        if (!found.empty()) failure.setWords(found);
    });
    throw;
}

}  // namespace

void readSegments(Adapter& adapter, std::span<Segment> segments) {
    Pass(adapter, "reading", wordCount(segments))
        .run(segments, [&](std::uint32_t address, std::span<std::uint16_t> chunk) {
            read(adapter.session, address, chunk);
        });
}

void writeSegments(Adapter& adapter, std::span<const Segment> segments) {
    Pass(adapter, "writing", wordCount(segments))
        .run(segments, [&](std::uint32_t address, std::span<const std::uint16_t> chunk) {
            adapter.session.write(address, chunk);
        });
}

Comparison compareSegments(Adapter& adapter, std::span<const Segment> expected,
                           std::size_t mostListed) {
    Comparison comparison;
    const auto compare = [&](std::uint32_t address, std::span<const std::uint16_t> chunk) {
        std::vector<std::uint16_t> found(chunk.size());
        read(adapter.session, address, found);
        for (std::size_t i = 0; i < chunk.size(); ++i) {
            if (chunk[i] == found[i]) continue;
            if (comparison.differing++ < mostListed)
                comparison.first.push_back(
                    {address + static_cast<std::uint32_t>(i), chunk[i], found[i]});
        }
    };
    Pass(adapter, "comparing", wordCount(expected)).run(expected, compare);
    return comparison;
}

}  // namespace wren
