#include "quill/stream_command.h"

#include "diag/result_sentry.h"
#include "quill/adapter_list.h"
#include "quill/driver_exchange.h"
#include "quill/frame.h"
#include "quill/last_error.h"
#include "quill/quill_stream.h"

namespace wrenlink {
namespace {

constexpr std::uint32_t kKeepCode = 0xFFFF;
constexpr std::uint32_t kKeepLength = 0xFFFFFFFF;

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

void writeHeader(std::uint8_t* frame, std::uint32_t code, std::uint32_t requestLength,
                 std::uint32_t replyLength) {
    if (requestLength != kKeepLength)
        putLittle16(frame + kRequestLengthOffset, static_cast<std::uint16_t>(requestLength));
    if (replyLength != kKeepLength)
        putLittle16(frame + kReplyLengthOffset, static_cast<std::uint16_t>(replyLength));
    if (code != kKeepCode) putBig16(frame + kCodeOffset, static_cast<std::uint16_t>(code));
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

bool Quill_Stream_Command(QuillStream* stream, std::uint8_t* buffer, std::uint32_t code,
                          std::uint32_t requestLength, std::uint32_t replyLength) {
    bool result = false;
    const ResultTrace<bool> trace(result);
    if (!adapterListExists()) return result;
    if (stream->port == QuillStream::kNoPort) {
        // The text takes memory, whose lack must not show where nobody reads the text.
        if (isTraced()) messageHandler(__func__).SetErrorMsg(0, "No USB-SPI device found");
        return result;
    }
    writeHeader(buffer, code, requestLength, replyLength);
    if (exchangeWithPort(stream, buffer, buffer)) return result = true;
    if (CTheMsgHnd::DebugActivated())
        messageHandler(__func__).DebugOutputInHandler(3, false, false, __func__, __FILE__, __LINE__,
                                                      "Quill Fail - %s", lastErrorText());
    Quill_Stream_InvalidateCache(stream);
    return result;
}

}  // namespace wrenlink
