#include "quill/interface_mode.h"

#include "diag/result_sentry.h"
#include "quill/adapter_settings.h"
#include "quill/frame.h"
#include "quill/last_error.h"
#include "quill/number_text.h"
#include "quill/quill_stream.h"
#include "quill/stream_command.h"

namespace wrenlink {

int Quill_Stream_SetMode(QuillStream* stream, const char* mode) {
    int result = 0;
    const ResultTrace<int> trace(result);
    AdapterSettings* const settings = stream->settings.get();
    if (settings == nullptr || !settings->look(AdapterSettings::delay))
        return result = Quill_SetLastError(260, 0, "Error allocating shared memory for delays");
    if (!settings->look(AdapterSettings::readBits)) {
        settings->forget();
        return result = Quill_SetLastError(260, 0, "Error allocating shared memory for cmdbits");
    }
    const std::uint16_t wanted = equalsIgnoringCase(mode, "JTAG") ? 1 : 0;
    CommandFrame frame(kSetInterfaceMode, {wanted});
    if (!Quill_Stream_Command(stream, frame)) return result = Quill_AppendToLastError(nullptr);
    return result;
}

}  // namespace wrenlink
