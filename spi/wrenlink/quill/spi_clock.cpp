#include "quill/spi_clock.h"

#include <limits>

#include "diag/result_sentry.h"
#include "quill/adapter_caches.h"
#include "quill/frame.h"
#include "quill/last_error.h"
#include "quill/number_text.h"
#include "quill/quill_stream.h"
#include "quill/stream_command.h"
#include "quill/stream_variables.h"

namespace wrenlink {
namespace {

constexpr double kFastestClock = 4000.0;
constexpr double kFastestRequest = 2000.0;
constexpr std::uint16_t kSlowestDelay = 65534;

// The stream's DelayCache; null with the reason stored.
DelayCache* delayCache(QuillStream* stream) {
    if (stream->delayRegion == nullptr) {
        Quill_SetLastError(258, 0, "Cannot Set Delays with no device selected");
        return nullptr;
    }
    auto* cache = cacheIn<DelayCache>(stream->delayRegion);
    if (cache == nullptr) Quill_SetLastError(260, 0, "Error allocating shared memory for delays");
    return cache;
}

}  // namespace

double Quill_GetClockFromDelays(std::uint16_t delay) {
    const Trace trace;
    if (delay == 0) return kFastestClock;
    return 1000000.0 / static_cast<double>(126 * std::uint32_t{delay} + 434);
}

std::uint16_t nearestDelay(double clock) {
    if (!(clock < kFastestRequest)) return 0;
    if (clock <= 0) return kSlowestDelay;
    const double steps = 7936.5 / clock - 2.9444;
    if (steps > std::numeric_limits<std::int32_t>::max()) return kSlowestDelay;
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(steps));
}

std::uint16_t limitDelay(std::uint16_t delay, double maximumClock) {
    while (Quill_GetClockFromDelays(delay) > maximumClock) ++delay;
    return delay;
}

int setClock(QuillStream* stream, double clock) {
    std::uint16_t delay = nearestDelay(clock);
    if (clock < kFastestRequest)
        delay = limitDelay(delay, parseDouble(Quill_Stream_GetVar(stream, "SPIMAXCLOCK")));
    return Quill_Stream_SetDelays(stream, delay);
}

int Quill_Stream_SetDelays(QuillStream* stream, std::uint16_t delay) {
    const Trace trace;
    DelayCache* cache = delayCache(stream);
    if (cache == nullptr) return 1;
    if (loadField(cache->delay) == delay) return 0;
    if (delay >= kTooSlowDelay)
        Quill_Stream_Debug(stream, "WARNING: instructed to set Quill clock too slow. honouring.");
    CommandFrame frame;
    frame.setField(0, delay);
    // A host that dies before it has recorded the delay leaves nothing behind that is not so.
    storeField(cache->delay, kUnknown);
    const bool sent = Quill_Stream_Command(stream, frame.bytes(), kSetDelay, 5, 0);
    Quill_Stream_Debug(stream, "Quill Set Delays %d", delay);
    if (!sent) return Quill_AppendToLastError("Unable to set delays");
    storeField(cache->delay, delay);
    return 0;
}

int Quill_Stream_GetDelays(QuillStream* stream, std::uint16_t* delay) {
    const Trace trace;
    DelayCache* cache = delayCache(stream);
    if (cache == nullptr) return 1;
    std::uint16_t found = loadField(cache->delay);
    if (found != kUnknown) {
        Quill_Stream_Debug_Full(stream, "Quill Get Delays = %d (cached)", found);
    } else {
        CommandFrame frame;
        if (!Quill_Stream_Command(stream, frame.bytes(), kGetDelay, kBareRequestLength, 4)) {
            Quill_Stream_Debug(stream, "Quill Get Delays command Failed");
            return Quill_AppendToLastError("Unable to get delays");
        }
        found = frame.replyField(0);
        storeField(cache->delay, found);
        Quill_Stream_Debug_Full(stream, "Quill Get Delays = %d", found);
    }
    if (delay != nullptr) *delay = found;
    return 0;
}

}  // namespace wrenlink
