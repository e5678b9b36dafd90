// The adapter-layer state of one stream: the adapter that it has selected, its settings, its debug
// callback and the texts it answers with. It has no lock: its host serialises calls on one stream.
#ifndef WRENLINK_QUILL_QUILL_STREAM_H
#define WRENLINK_QUILL_QUILL_STREAM_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "diag/result_sentry.h"
#include "quill/adapter_settings.h"
#include "quill/debug_full.h"
#include "wrenlink/spifns.h"

namespace wrenlink {

struct QuillStream {
    static constexpr std::uint32_t kNoPort = 0xFFFFFFFF;

    std::uint32_t port = kNoPort;       // of the selected adapter
    std::uint16_t firmwareVersion = 0;  // high byte major, low byte minor; read at selection
    std::uint32_t muxDevice = 0;        // SPIMUL, 0 to 16
    std::unique_ptr<AdapterSettings> settings;  // of the selected adapter; null without one
    std::uint16_t cmdReadBits = 0;
    std::uint16_t cmdWriteBits = 0;
    spifns_debug_callback debugCallback = nullptr;
    void* debugContext = nullptr;
    // The answers to reads of the variables of these names.
    char spiportText[20] = "";
    char spimulText[20] = "";
    char quillversionText[20] = "";
    char spiDelayText[20] = "";
    char spiclockText[64] = "";
    char spimaxclockText[20] = "1070";  // kHz; the setting itself
    char mutexnameText[32] = "";
    char spicmdreadbitsText[20] = "";
    char spicmdwritebitsText[20] = "";
    bool mapFileFailed = false;  // starting the adapter layer found a faulty map file
};

// Makes a stream with no adapter selected, and counts it in the adapter layer (which exchanges when
// it is the first). Owned by the caller. Out of memory it throws and nothing is left.
QuillStream* Quill_Stream_Initialise();

// Destroys a stream (null is allowed) and ends its use of the adapter layer.
void Quill_Stream_Finalise(QuillStream* stream);

// Selects the adapter of a selection key in decimal; a text that is not wholly a number means key
// 0. Opens its shared caches and reads its firmware version (an exchange); neither failing fails
// the selection. Returns 1 and stores 514 "Couldn't find device with id (...)" when the key selects
// nothing; the stream then keeps what it had.
int Quill_Stream_SelectDevice(QuillStream* stream, const char* selection);

// Writes "quill" and the adapter id, cut to size bytes and terminated. Returns 1 and stores code 1
// when no adapter is selected, or buffer is null.
int Quill_Stream_GetDeviceId(QuillStream* stream, char* buffer, std::size_t size);

// Asks the adapter for its firmware version; 0 on failure. Exchanges.
std::uint16_t Quill_Stream_GetVersion(QuillStream* stream);

// The version as read at selection.
inline std::uint8_t Quill_Stream_MajorVer(QuillStream* stream) {
    std::uint8_t result = 0;
    const ResultTrace<std::uint8_t> trace(result);
    return result = static_cast<std::uint8_t>(stream->firmwareVersion >> 8);
}
inline std::uint8_t Quill_Stream_MinorVer(QuillStream* stream) {
    std::uint8_t result = 0;
    const ResultTrace<std::uint8_t> trace(result);
    return result = static_cast<std::uint8_t>(stream->firmwareVersion);
}

// Marks the adapter's shared delay and command bits unknown. A failed exchange has done so already,
// in the adapter's turn (SettingsExchange); traces show that it is done here too.
void Quill_Stream_InvalidateCache(QuillStream* stream);

// Copies the command bits that the adapter was last given, for writes or for reads, to *bits; they
// may be 0xFFFF, unknown. False when nobody can tell: no adapter selected, region unavailable, null
// pointer.
bool Quill_Stream_GetCmdBitsCache(QuillStream* stream, std::uint16_t* bits, bool forWrites);

void Quill_Stream_SetDebugCallback(QuillStream* stream, spifns_debug_callback callback,
                                   void* context);

// Hands a formatted text to the stream's callback, if it has one; the second only when
// SPIDEBUG_FULL is on. Texts are cut to 1151 characters, which every failure report fits.
void Quill_Stream_Debug(QuillStream* stream, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
void Quill_Stream_Debug_Full(QuillStream* stream, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
// Whether anybody would notice the second; what runs for each record calls it only then.
inline bool isDebugFullNoticed() { return DebugFullSwitch::isOn() || isTraced; }

}  // namespace wrenlink

#endif
