#include "quill/stream_command.h"

#include "diag/result_sentry.h"
#include "quill/adapter_list.h"
#include "quill/driver_exchange.h"
#include "quill/frame.h"
#include "quill/last_error.h"
#include "quill/quill_stream.h"

namespace wrenlink {
namespace {

const char* lastErrorText() {
    const char* text = nullptr;
    Quill_GetLastError(nullptr, &text);
    return text;
}

bool exchangeWithPort(QuillStream* stream, std::uint8_t* request, std::uint8_t* replyBase) {
    const AdapterEntry* adapter = findAdapter(stream->port);
    return adapter != nullptr &&
           Quill_Command(request, replyBase, adapter->devicePath.c_str(), stream->settings.get());
}

}  // namespace

bool Quill_Stream_Command(QuillStream* stream, std::uint8_t* request, std::uint8_t* replyBase) {
    bool result = false;
    const ResultTrace<bool> trace(result);
    if (!adapterListExists()) return result;
    if (stream->port == QuillStream::kNoPort) {
        Quill_SetLastError(514, 0, "No Quill device found");
        return result;
    }
    if (exchangeWithPort(stream, request, replyBase)) return result = true;
    Quill_Stream_Debug(stream, "USB-SPI device fail - %s", lastErrorText());
    Quill_Stream_InvalidateCache(stream);
    return result;
}

bool Quill_Stream_Command(QuillStream* stream, CommandFrame& frame) {
    bool result = false;
    const ResultTrace<bool> trace(result);
    if (!adapterListExists()) return result;
    if (stream->port == QuillStream::kNoPort) {
        // Making the string may throw, so it is made only for somebody who reads it.
        if (isTraced) messageHandler(__func__).SetErrorMsg(0, "No USB-SPI device found");
        return result;
    }
    if (exchangeWithPort(stream, frame.bytes(), frame.bytes())) return result = true;
    if (CTheMsgHnd::DebugActivated())
        messageHandler(__func__).DebugOutputInHandler(3, false, false, __func__, __FILE__, __LINE__,
                                                      "Quill Fail - %s", lastErrorText());
    Quill_Stream_InvalidateCache(stream);
    return result;
}

}  // namespace wrenlink
