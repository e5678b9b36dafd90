#include "transfer.h"

#include <fmt/format.h>

#include <algorithm>

#include "failure.h"
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
        : doing_(doing), total_(total), bar_(adapter.status, adapter.report.mark() + doing, total) {
        noteInterrupts();
    }

    // Calls work(address, chunk) for each chunk in turn.
    template <class SegmentType, class Work>
    void run(std::span<SegmentType> segments, Work work) {
        for (SegmentType& segment : segments) {
            const auto words = std::span(segment.words);
            for (std::size_t at = 0; at < words.size();) {
                const auto chunk = words.subspan(at, std::min(kChunkWords, words.size() - at));
                const std::uint32_t address = segment.address + static_cast<std::uint32_t>(at);
                step([&] { work(address, chunk); });
                at += chunk.size();
                done_ += chunk.size();
                bar_.update(done_);
            }
        }
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

    const char* doing_;
    std::size_t total_;
    std::size_t done_ = 0;
    ProgressBar bar_;
};

}  // namespace

void readSegments(Adapter& adapter, std::span<Segment> segments) {
    Pass(adapter, "reading", wordCount(segments))
        .run(segments, [&](std::uint32_t address, std::span<std::uint16_t> chunk) {
            adapter.session.read(address, chunk);
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
        adapter.session.read(address, found);
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
