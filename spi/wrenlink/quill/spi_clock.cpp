#include "quill/spi_clock.h"

#include <limits>
#include <optional>

#include "diag/result_sentry.h"
#include "quill/adapter_settings.h"
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

// The delay as all know it, perhaps kUnknown; nothing, with the reason stored, without a cache.
std::optional<std::uint16_t> knownDelay(QuillStream* stream) {
    if (stream->settings == nullptr) {
        Quill_SetLastError(258, 0, "Cannot Set Delays with no device selected");
        return std::nullopt;
    }
    const auto delay = stream->settings->look(AdapterSettings::delay);
    if (!delay) Quill_SetLastError(260, 0, "Error allocating shared memory for delays");
    return delay;
}

// The delay for a requested clock: 0 from 2000 kHz on and for what is not a number; else the
// nearest delay, of which the low 16 bits are kept below 0.1211 kHz, a clock that no delay reaches.
// A clock of 0 or below, or too small to compute with, gives 65534, the slowest that can be told
// from an unknown one.
std::uint16_t nearestDelay(double clock) {
    if (!(clock < kFastestRequest)) return 0;
    if (clock <= 0) return kSlowestDelay;
    const double steps = 7936.5 / clock - 2.9444;
    if (steps > std::numeric_limits<std::int32_t>::max()) return kSlowestDelay;
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(steps));
}

// The first delay from this one on whose clock is not above the maximum. Ends for every maximum of
// 1 kHz or more.
std::uint16_t limitDelay(std::uint16_t delay, double maximumClock) {
    while (Quill_GetClockFromDelays(delay) > maximumClock) ++delay;
    return delay;
}

}  // namespace

double Quill_GetClockFromDelays(std::uint16_t delay) {
    const Trace trace;
    if (delay == 0) return kFastestClock;
    return 1000000.0 / static_cast<double>(126 * std::uint32_t{delay} + 434);
}

int setClock(QuillStream* stream, double clock) {
    std::uint16_t delay = nearestDelay(clock);
    if (clock < kFastestRequest)
        delay = limitDelay(delay, parseDouble(Quill_Stream_GetVar(stream, "SPIMAXCLOCK")));
    return Quill_Stream_SetDelays(stream, delay);
}

int Quill_Stream_SetDelays(QuillStream* stream, std::uint16_t delay) {
    const Trace trace;
    const auto known = knownDelay(stream);
    if (!known) return 1;
    if (*known == delay) return 0;
    if (delay >= kTooSlowDelay)
        Quill_Stream_Debug(stream, "WARNING: instructed to set Quill clock too slow. honouring.");
    CommandFrame frame(kSetDelay, {delay});
    const bool sent = Quill_Stream_Command(stream, frame);
    Quill_Stream_Debug(stream, "Quill Set Delays %d", delay);
    return sent ? 0 : Quill_AppendToLastError("Unable to set delays");
}

int Quill_Stream_GetDelays(QuillStream* stream, std::uint16_t* delay) {
    const Trace trace;
    const auto known = knownDelay(stream);
    if (!known) return 1;
    std::uint16_t found = *known;
    if (found != kUnknown) {
        Quill_Stream_Debug_Full(stream, "Quill Get Delays = %d (cached)", found);
    } else {
        CommandFrame frame(kGetDelay);
        if (!Quill_Stream_Command(stream, frame)) {
            Quill_Stream_Debug(stream, "Quill Get Delays command Failed");
            return Quill_AppendToLastError("Unable to get delays");
        }
        found = frame.replyField(0);
        Quill_Stream_Debug_Full(stream, "Quill Get Delays = %d", found);
    }
    if (delay != nullptr) *delay = found;
    return 0;
}

}  // namespace wrenlink
