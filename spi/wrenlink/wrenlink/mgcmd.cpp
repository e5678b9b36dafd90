#include "wrenlink/mgcmd.h"

#include "diag/result_sentry.h"
#include "quill/frame.h"
#include "quill/last_error.h"
#include "quill/stream_command.h"
#include "wrenlink/words.h"

namespace wrenlink {
namespace {

// MGCMDs came with firmware 1.5.
bool isTooOld(QuillStream* quill) {
    return Quill_Stream_MajorVer(quill) == 1 && Quill_Stream_MinorVer(quill) < 5;
}

}  // namespace

int spi_sd_mgcmd_init(CUsbStreamData& stream, std::uint16_t first, std::uint16_t second) {
    const Trace trace;
    QuillStream* quill = stream.quill();
    if (isTooOld(quill))
        return Quill_SetLastError(520, 0, "Unable to initialise MGCMDs, USB-SPI firmware too old");
    Quill_Stream_Debug_Full(quill, "Quill MGCMD init");
    CommandFrame frame(kInitialiseMgcmd, {first, second});
    if (!Quill_Stream_Command(quill, frame))
        return Quill_AppendToLastError("Unable to initialise MGCMDs");
    return 0;
}

int spi_sd_mgcmd_cmd(CUsbStreamData& stream, std::uint16_t* words, std::uint16_t length,
                     std::uint32_t flag) {
    const Trace trace;
    QuillStream* quill = stream.quill();
    if (isTooOld(quill))
        return Quill_SetLastError(520, 0, "Unable to send MGCMD, USB-SPI firmware too old");
    Quill_Stream_Debug_Full(quill, "Quill MGCMD cmd");
    if (length > kMaxMgcmdWords) {
        Quill_Stream_Debug(quill, "Too long\n");
        return Quill_SetLastError(1, 0, "MGCMD too long");
    }
    if (words == nullptr && length != 0)
        return Quill_SetLastError(1, 0, "Invalid variable or value");

    CommandFrame frame(kMgcmd, {length});
    std::uint8_t* const wireWords = frame.addWords(length);
    wordsToWire(wireWords, words, length);
    if (!Quill_Stream_Command(quill, frame)) return Quill_AppendToLastError("MGCMD cmd failed");
    if (frame.replyStatus() == kMgcmdFailed && flag != 0) {
        Quill_Stream_Debug(quill, "MGCMD failed on quill");
        return Quill_SetLastError(517, 0, "MGCMD failed on USB-SPI device");
    }
    wordsFromWire(words, wireWords, length);
    return 0;
}

spifns_xap_state spi_sd_marigold_xap_stopped(CUsbStreamData& stream) {
    const Trace trace;
    spifns_xap_state state = SPIFNS_XAP_ERROR;
    const char* text = "Quill XAP Stopped?Quill Fail";
    CommandFrame frame(kQueryXapStopped);
    if (!Quill_Stream_Command(stream.quill(), frame)) {
        // The exchange has stored why.
    } else if (frame.replyStatus() != kQueryXapStopped.code) {
        text = "Quill XAP Stopped? = failed on quill";
        Quill_SetLastError(517, 0, "xap_stopped failed on USB-SPI device");
    } else if (frame.replyField(0) != 0) {
        text = "Quill XAP Stopped? = Stopped";
        state = SPIFNS_XAP_STOPPED;
    } else {
        text = "Quill XAP Stopped? = Running";
        state = SPIFNS_XAP_RUNNING;
    }
    if (CTheMsgHnd::DebugActivated())
        messageHandler(__func__).DebugOutputInHandler(3, false, false, __func__, __FILE__, __LINE__,
                                                      "Quill - %s", text);
    return state;
}

}  // namespace wrenlink
