#include "quill/stream_variables.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "diag/result_sentry.h"
#include "quill/frame.h"
#include "quill/interface_mode.h"
#include "quill/last_error.h"
#include "quill/number_text.h"
#include "quill/quill_stream.h"
#include "quill/spi_clock.h"
#include "quill/stream_command.h"

namespace wrenlink {
namespace {

constexpr std::array<spifns_variable, kVariableCount> kVariableTable = {{
    {"SPIPORT", "0", 1},
    {"QUILLMODE", "SPI", 1},
    {"SPI_DELAY", "0", 0},
    {"SPICLOCK", "0", 0},
    {"SPIMUL", "0", 0},
    {"SPICMDBITS", "0", 0},
    {"SPICMDREADBITS", "0", 0},
    {"SPICMDWRITEBITS", "0", 0},
    {"SPIMAXCLOCK", "1070", 0},
}};

constexpr std::uint32_t kHighestMuxDevice = 16;

// The longest double in "%lf": 309 digits, a point and 6 more.
constexpr std::size_t kFixedTextSize = 330;

// Writes a number as "%lf" does in the "C" locale, cut to the buffer.
template <std::size_t size>
void printFixed(char (&buffer)[size], double number) {
    char text[kFixedTextSize];
    const auto end =
        std::to_chars(text, text + sizeof text, number, std::chars_format::fixed, 6).ptr;
    const auto length = std::min<std::size_t>(static_cast<std::size_t>(end - text), size - 1);
    std::copy_n(text, length, buffer);
    buffer[length] = '\0';
}

template <std::size_t size, class... Arguments>
const char* print(char (&buffer)[size], const char* format, Arguments... arguments) {
    std::snprintf(buffer, size, format, arguments...);
    return buffer;
}

// ---- Reading ----

// 0 when the delay cannot be had; the failure stays stored.
std::uint16_t delayOrZero(QuillStream* stream) {
    std::uint16_t delay = 0;
    Quill_Stream_GetDelays(stream, &delay);
    return delay;
}

const char* readSpiPort(QuillStream* stream) {
    return print(stream->spiportText, "%d", static_cast<int>(stream->port));
}

const char* readQuillVersion(QuillStream* stream) {
    return print(stream->quillversionText, "%04x", unsigned{stream->firmwareVersion});
}

const char* readSpiDelay(QuillStream* stream) {
    return print(stream->spiDelayText, "%d", int{delayOrZero(stream)});
}

const char* readSpiClock(QuillStream* stream) {
    printFixed(stream->spiclockText, Quill_GetClockFromDelays(delayOrZero(stream)));
    return stream->spiclockText;
}

const char* readSpiMaxClock(QuillStream* stream) { return stream->spimaxclockText; }

const char* readMutexName(QuillStream* stream) {
    return print(stream->mutexnameText, "usbspi_mutex_%d", static_cast<int>(stream->port));
}

const char* readCmdBits(QuillStream* stream) {
    if (stream->cmdReadBits != stream->cmdWriteBits) return "MISMATCH";
    return Quill_Stream_GetVar(stream, "SPICMDREADBITS");
}

const char* readCmdReadBits(QuillStream* stream) {
    return print(stream->spicmdreadbitsText, "0x%x", unsigned{stream->cmdReadBits});
}

const char* readCmdWriteBits(QuillStream* stream) {
    return print(stream->spicmdwritebitsText, "0x%x", unsigned{stream->cmdWriteBits});
}

const char* readSpiMul(QuillStream* stream) {
    return print(stream->spimulText, "%d", static_cast<int>(stream->muxDevice));
}

struct ReadableVariable {
    const char* name;
    const char* (*read)(QuillStream* stream);
};

constexpr ReadableVariable kReadableVariables[] = {
    {"SPIPORT", readSpiPort},
    {"QUILLVERSION", readQuillVersion},
    {"SPI_DELAY", readSpiDelay},
    {"SPICLOCK", readSpiClock},
    {"SPIMAXCLOCK", readSpiMaxClock},
    {"MUTEXNAME", readMutexName},
    {"SPICMDBITS", readCmdBits},
    {"SPICMDREADBITS", readCmdReadBits},
    {"SPICMDWRITEBITS", readCmdWriteBits},
    {"SPIMUL", readSpiMul},
};

const char* answer(QuillStream* stream, const char* name) {
    for (const ReadableVariable& variable : kReadableVariables)
        if (equalsIgnoringCase(name, variable.name)) return variable.read(stream);
    return "";
}

// ---- Setting ----

int setSpiDelay(QuillStream* stream, const char* value) {
    return Quill_Stream_SetDelays(stream, parseWord(value));
}

int setSpiClock(QuillStream* stream, const char* value) {
    return setClock(stream, parseDouble(value));
}

int setSpiMul(QuillStream* stream, const char* value) {
    auto device = static_cast<std::uint32_t>(parseSigned(value));
    if (device == 0xFFFFFFFF) device = 0;
    if (device > kHighestMuxDevice)
        return Quill_SetLastError(1, 0, "SPIMUL is out of range (valid value: 0 - 16)");
    stream->muxDevice = device;
    Quill_Stream_Debug(stream, "Quill mul dev %d", static_cast<int>(device));
    CommandFrame frame;
    frame.setField(0, static_cast<std::uint16_t>(device));
    if (!Quill_Stream_Command(stream, frame.bytes(), kSelectMuxDevice, 5, 0))
        return Quill_AppendToLastError("Unable to set multipled device");
    return 0;
}

int setSpiMaxClock(QuillStream* stream, const char* value) {
    // A text that is not a number, NaN included, gives the least maximum.
    const double clock = parseDouble(value);
    printFixed(stream->spimaxclockText, clock > 1.0 ? clock : 1.0);
    Quill_Stream_Debug(stream, "Quill Max Clock %s", stream->spimaxclockText);
    return 0;
}

int setNothing(QuillStream*, const char*) { return 0; }

// By VariableIndex, and one more for a name that is in no table.
constexpr std::array<int (*)(QuillStream* stream, const char* value), kVariableCount + 1> kSetters =
    {
        Quill_Stream_SelectDevice,
        Quill_Stream_SetMode,
        setSpiDelay,
        setSpiClock,
        setSpiMul,
        setNothing,
        setNothing,
        setNothing,
        setSpiMaxClock,
        setNothing,
};

}  // namespace

void Quill_GetKnownVars(const spifns_variable** list, std::uint32_t* count) {
    const Trace trace;
    if (list != nullptr) *list = kVariableTable.data();
    if (count != nullptr) *count = kVariableTable.size();
}

int Quill_FindVar(const char* name) {
    const Trace trace;
    const auto found = std::find_if(
        kVariableTable.begin(), kVariableTable.end(),
        [name](const auto& variable) { return equalsIgnoringCase(name, variable.name); });
    return static_cast<int>(found - kVariableTable.begin());
}

const char* Quill_Stream_GetVar(QuillStream* stream, const char* name) {
    const char* result = "";
    const ResultTrace<const char*> trace(result);
    Quill_Stream_Debug_Full(stream, "var = %s", name == nullptr ? "(null)" : name);
    if (name == nullptr) return result;
    result = answer(stream, name);
    Quill_Stream_Debug_Full(stream, "pszResult = %s", result);
    return result;
}

int Quill_Stream_SetVar(QuillStream* stream, const char* name, const char* value) {
    int result = 0;
    const ResultTrace<int> trace(result);
    if (name == nullptr || value == nullptr)
        return result = Quill_SetLastError(1, 0, "Invalid variable or value");
    return result = kSetters[static_cast<std::size_t>(Quill_FindVar(name))](stream, value);
}

}  // namespace wrenlink
