#include "quill/quill_stream.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "diag/result_sentry.h"
#include "quill/adapter_layer.h"
#include "quill/adapter_list.h"
#include "quill/debug_full.h"
#include "quill/frame.h"
#include "quill/host_call.h"
#include "quill/last_error.h"
#include "quill/number_text.h"
#include "quill/stream_command.h"

namespace wrenlink {
namespace {

// Holds "USB-SPI device fail - " and the longest error text.
constexpr std::size_t kDebugTextSize = 1152;

constexpr char kVersionFormat[] = "Quill fw version: %u (0x%X)\n";

// The adapter that a selection text selects, and its port number in `port`; null when there is
// none.
const AdapterEntry* selectedAdapter(const char* selection, std::uint32_t& port) {
    const auto [number, end] = parseUnsigned(selection);
    const std::uint32_t key = *end == '\0' ? number : 0;
    const SelectionTable* table = selectionTable();
    if (table == nullptr) return nullptr;
    const auto found = table->find(key);
    if (found == table->end()) return nullptr;
    port = static_cast<std::uint32_t>(found->second);
    return findAdapter(found->second);
}

void passToCallback(QuillStream* stream, const char* format, va_list arguments) {
    if (stream->debugCallback == nullptr) return;
    char text[kDebugTextSize];
    std::vsnprintf(text, sizeof text, format, arguments);
    callHost(stream->debugCallback, text, stream->debugContext);
}

}  // namespace

QuillStream* Quill_Stream_Initialise() {
    const Trace trace;
    const bool mapFileRead = Quill_Initialise();
    try {
        auto* const stream = new QuillStream;
        stream->mapFileFailed = !mapFileRead;
        return stream;
    } catch (...) {
        Quill_Finalise();
        throw;
    }
}

void Quill_Stream_Finalise(QuillStream* stream) {
    const Trace trace;
    delete stream;
    Quill_Finalise();
}

int Quill_Stream_SelectDevice(QuillStream* stream, const char* selection) {
    int result = 0;
    const ResultTrace<int> trace(result);
    std::uint32_t port = 0;
    const AdapterEntry* adapter = selectedAdapter(selection, port);
    if (adapter == nullptr)
        return result = Quill_SetLastError(514, 0, "Couldn't find device with id (%s)", selection);

    // The new ones are opened before the old ones go, so that selecting an adapter again keeps what
    // is known of it.
    auto settings = std::make_unique<AdapterSettings>(adapter->id);
    stream->port = port;
    stream->settings = std::move(settings);
    stream->firmwareVersion = 0;
    stream->firmwareVersion = Quill_Stream_GetVersion(stream);
    return result;
}

int Quill_Stream_GetDeviceId(QuillStream* stream, char* buffer, std::size_t size) {
    const Trace trace;
    const AdapterEntry* adapter =
        stream->port == QuillStream::kNoPort ? nullptr : findAdapter(stream->port);
    if (adapter == nullptr)
        return Quill_SetLastError(1, 0, "Device ID unavailable when port not open");
    if (buffer == nullptr) return Quill_SetLastError(1, 0, "Invalid variable or value");
    std::snprintf(buffer, size, "quill%" PRIu32, adapter->id);
    return 0;
}

std::uint16_t Quill_Stream_GetVersion(QuillStream* stream) {
    std::uint16_t result = 0;
    const ResultTrace<std::uint16_t> trace(result);
    CommandFrame frame(kGetFirmwareVersion);
    if (!Quill_Stream_Command(stream, frame)) return result;
    result = frame.replyField(0);
    const unsigned int version = result;
    Quill_Stream_Debug_Full(stream, kVersionFormat, version, version);
    if (CTheMsgHnd::DebugActivated())
        messageHandler(__func__).DebugOutputInHandler(3, false, false, __func__, __FILE__, __LINE__,
                                                      kVersionFormat, version, version);
    return result;
}

void Quill_Stream_InvalidateCache(QuillStream* stream) {
    const Trace trace;
    if (stream->settings != nullptr) stream->settings->forget();
}

bool Quill_Stream_GetCmdBitsCache(QuillStream* stream, std::uint16_t* bits, bool forWrites) {
    const Trace trace;
    std::optional<std::uint16_t> known;
    if (bits != nullptr && stream->settings != nullptr)
        known = stream->settings->look(forWrites ? AdapterSettings::writeBits
                                                 : AdapterSettings::readBits);
    if (isDebugFullNoticed())
        Quill_Stream_Debug_Full(
            stream, known ? "There is a cached cmdbits" : "There is not a cached cmdbits");
    if (known) *bits = *known;
    return known.has_value();
}

void Quill_Stream_SetDebugCallback(QuillStream* stream, spifns_debug_callback callback,
                                   void* context) {
    const Trace trace;
    stream->debugCallback = callback;
    stream->debugContext = context;
}

void Quill_Stream_Debug(QuillStream* stream, const char* format, ...) {
    const Trace trace;
    va_list arguments;
    va_start(arguments, format);
    passToCallback(stream, format, arguments);
    va_end(arguments);
}

void Quill_Stream_Debug_Full(QuillStream* stream, const char* format, ...) {
    const Trace trace;
    if (!DebugFullSwitch::isOn()) return;
    va_list arguments;
    va_start(arguments, format);
    passToCallback(stream, format, arguments);
    va_end(arguments);
}

}  // namespace wrenlink
