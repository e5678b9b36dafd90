#include "wrenlink/chip_command.h"

#include "diag/result_sentry.h"
#include "quill/frame.h"
#include "quill/last_error.h"
#include "quill/number_text.h"
#include "quill/spi_clock.h"
#include "quill/stream_command.h"

namespace wrenlink {
namespace {

void enterDfu(QuillStream* quill) {
    CommandFrame frame(kEnterDfu);
    const bool sent = Quill_Stream_Command(quill, frame);
    Quill_Stream_Debug_Full(quill, "Quill DFU");
    if (!sent) Quill_AppendToLastError("Unable to enable DFU mode");
}

void slowDown(QuillStream* quill) {
    std::uint16_t delay = 0;  // also what an unreadable delay counts as
    Quill_Stream_GetDelays(quill, &delay);
    if (delay >= kTooSlowDelay) {
        Quill_Stream_Debug(quill, "WARNING: instructed to set Quill clock too slow. ignoring.");
        return;
    }
    const auto slower = static_cast<std::uint16_t>(delay + delay / 4 + 1);
    if (Quill_Stream_SetDelays(quill, slower) != 0)
        Quill_AppendToLastError("Unable to slow down SPI");
}

struct ChipCommand {
    const char* name;
    void (*run)(QuillStream* quill);
};

constexpr ChipCommand kChipCommands[] = {{"DFU", enterDfu}, {"SPISLOWER", slowDown}};

}  // namespace

const char* spi_sd_command(CUsbStreamData& stream, const char* name) {
    const Trace trace;
    for (const ChipCommand& command : kChipCommands)
        if (equalsIgnoringCase(name, command.name)) command.run(stream.quill());
    return nullptr;
}

}  // namespace wrenlink
