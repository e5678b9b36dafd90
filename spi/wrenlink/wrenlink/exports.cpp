// The 28 exported functions. Each is a frame around one operation.
#include <memory>

#include "quill/adapter_list.h"
#include "quill/quill_stream.h"
#include "quill/stream_variables.h"
#include "wrenlink/call_frame.h"
#include "wrenlink/chip_command.h"
#include "wrenlink/mgcmd.h"
#include "wrenlink/sequence.h"
#include "wrenlink/spifns.h"

using namespace wrenlink;

namespace {

// ---- Operations, the same for a stream and for the legacy stream ----

auto mgcmdCommand(std::uint16_t* words, std::uint16_t length, std::uint32_t flag) {
    return [=](CUsbStreamData& stream) { return spi_sd_mgcmd_cmd(stream, words, length, flag); };
}

auto mgcmdInit(std::uint16_t first, std::uint16_t second) {
    return [=](CUsbStreamData& stream) { return spi_sd_mgcmd_init(stream, first, second); };
}

auto command(const char* name) {
    return [=](CUsbStreamData& stream) { return spi_sd_command(stream, name); };
}

auto variable(const char* name) {
    return [=](CUsbStreamData& stream) { return Quill_Stream_GetVar(stream.quill(), name); };
}

auto sequence(const SpiAction* actions, std::uint32_t count) {
    return [=](CUsbStreamData& stream) {
        return spi_sd_sequence(stream, actions, static_cast<std::int32_t>(count));
    };
}

auto debugCallback(spifns_debug_callback callback, void* context) {
    return [=](CUsbStreamData& stream) {
        Quill_Stream_SetDebugCallback(stream.quill(), callback, context);
    };
}

// Passes a text on to the host's function whose address stands at `location`. It also gets the
// location, as a second argument that a function of one argument does not see.
void passToLegacyCallback(const char* text, void* location) {
    const auto callback = *static_cast<spifns_debug_callback*>(location);
    if (callback != nullptr) callback(text, location);
}

// ---- Opening ----

// Makes a stream and stores it in the table. Returns 0, or 1 with the failure stored.
int openStream(std::uint32_t* id) {
    auto stream = std::make_unique<CUsbStreamData>();
    if (stream->hasFailedMapFileInitialisation()) {
        const int status = Quill_AppendToLastError("Failed to initialise with quill map file");
        if (status != 0) return status;
    }
    if (!streamTable().addStream(id, stream.get()))
        return Quill_SetLastError(261, 0, "Too many streams");
    static_cast<void>(stream.release());  // the table owns it
    return 0;
}

int assignLegacy(std::uint32_t id) {
    const CUsbStreamRef stream = streamTable().getStream(id);
    if (!stream || streamTable().assignLegacyStream(&*stream)) return 0;
    return Quill_SetLastError(263, 0, "Legacy stream already assigned");
}

// ---- The last error ----

unsigned int lastError(unsigned int* address, const char** text) {
    const Call call;
    if (call) return Quill_GetLastError(address, text);
    if (address != nullptr) *address = 0;
    if (text != nullptr) *text = "";
    return 0;
}

}  // namespace

extern "C" {

int spifns_mgcmd_cmd(uint16_t* words, uint16_t length, uint32_t flag) {
    return tracedOnStream(kLegacyStream, 1, mgcmdCommand(words, length, flag));
}

int spifns_mgcmd_init(uint16_t first, uint16_t second) {
    return tracedOnStream(kLegacyStream, 1, mgcmdInit(first, second));
}

spifns_xap_state spifns_marigold_xap_stopped(void) {
    return tracedOnStream(kLegacyStream, SPIFNS_XAP_ERROR, spi_sd_marigold_xap_stopped);
}

void spifns_chip_select(void) { const Trace trace; }

void spifns_clear_last_error(void) {
    const Trace trace;
    const Call call;
    if (call) Quill_ClearLastError();
}

void spifns_close(void) {
    const Trace trace;
    const Call call;
    if (!call) return;
    const CUsbStreamRef stream = streamTable().getLegacyStream();
    if (!stream) return;
    streamTable().removeStream(stream->id());
    spifns_clear_last_error();
}

const char* spifns_command(const char* name) {
    return tracedOnStream<const char*>(kLegacyStream, nullptr, command(name));
}

uint32_t spifns_count_streams(void) {
    std::uint32_t result = 0;
    const ResultTrace<std::uint32_t> trace(result);
    const Call call;
    return result = call ? streamTable().countStreams() : 0;
}

void spifns_enumerate_ports(spifns_port_callback callback, void* context) {
    const Trace trace;
    const Call call;
    if (call) guardMemory([=] { Quill_EnumeratePorts(callback, context); });
}

int spifns_get_last_error(uint16_t* address, const char** text) {
    int result = 0;
    const ResultTrace<int> trace(result);
    unsigned int fullAddress = 0;
    result = static_cast<int>(lastError(&fullAddress, text));
    if (address != nullptr) *address = static_cast<std::uint16_t>(fullAddress);
    return result;
}

int spifns_get_last_error32(uint32_t* address, const char** text) {
    const Trace trace;
    return static_cast<int>(lastError(address, text));
}

uint32_t spifns_get_version(void) { return SPIFNS_VERSION; }

const char* spifns_getvar(const char* name) {
    return tracedOnStream(kLegacyStream, "", variable(name));
}

void spifns_getvarlist(const spifns_variable** list, uint32_t* count) {
    const Trace trace;
    Quill_GetKnownVars(list, count);
}

int spifns_init(void) {
    int result = 0;
    const ResultTrace<int> trace(result);
    std::uint32_t id = SPIFNS_NO_STREAM;
    result = spifns_stream_init(&id);
    if (result != 0) return result;
    result = 1;  // unless the next succeeds
    const Call call;
    if (call) guardMemory([&] { result = assignLegacy(id); });
    return result;
}

int spifns_sequence(SpiAction* actions, uint32_t count) {
    return tracedOnStream(kLegacyStream, 1, sequence(actions, count));
}

void spifns_set_debug_callback(spifns_legacy_debug_callback* callback) {
    onStream(kLegacyStream,
             debugCallback(callback == nullptr ? nullptr : passToLegacyCallback, callback));
}

int spifns_stream_mgcmd_cmd(uint32_t stream, uint16_t* words, uint16_t length, uint32_t flag) {
    return tracedOnStream(stream, 1, mgcmdCommand(words, length, flag));
}

int spifns_stream_mgcmd_init(uint32_t stream, uint16_t first, uint16_t second) {
    return tracedOnStream(stream, 1, mgcmdInit(first, second));
}

spifns_xap_state spifns_stream_marigold_xap_stopped(uint32_t stream) {
    return tracedOnStream(stream, SPIFNS_XAP_ERROR, spi_sd_marigold_xap_stopped);
}

void spifns_stream_chip_select(void) { const Trace trace; }

void spifns_stream_close(uint32_t stream) {
    const Trace trace;
    const Call call;
    if (call) streamTable().removeStream(stream);
    spifns_clear_last_error();
}

const char* spifns_stream_command(uint32_t stream, const char* name) {
    return tracedOnStream<const char*>(stream, nullptr, command(name));
}

int spifns_stream_get_device_id(uint32_t stream, char* buffer, size_t size) {
    return tracedOnStream(stream, 1, [=](CUsbStreamData& data) {
        return Quill_Stream_GetDeviceId(data.quill(), buffer, size);
    });
}

const char* spifns_stream_getvar(uint32_t stream, const char* name) {
    return tracedOnStream(stream, "", variable(name));
}

int spifns_stream_init(uint32_t* stream) {
    int result = 1;
    const ResultTrace<int> trace(result);
    const Call call;
    guardMemory([&] {
        if (!call) return;
        if (stream == nullptr) {
            Quill_SetLastError(262, 0, "Invalid stream");
            return;
        }
        *stream = SPIFNS_NO_STREAM;
        result = openStream(stream);
    });
    return result;
}

int spifns_stream_sequence(uint32_t stream, SpiAction* actions, uint32_t count) {
    return tracedOnStream(stream, 1, sequence(actions, count));
}

void spifns_stream_set_debug_callback(uint32_t stream, spifns_debug_callback callback,
                                      void* context) {
    onStream(stream, debugCallback(callback, context));
}

}  // extern "C"
