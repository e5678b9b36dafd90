#include "quill/stream_variables.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <memory>
#include <span>

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

const char* readNothing(QuillStream*) { return ""; }

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
    CommandFrame frame(kSelectMuxDevice, {static_cast<std::uint16_t>(device)});
    if (!Quill_Stream_Command(stream, frame))
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

// ---- The variables ----

// One variable, all of it.
struct Variable {
    const char* name;
    const char* defaultText;  // null: not published, and so not to be set
    std::uint64_t flag;       // 1 for the variables that choose and open a port
    const char* (*read)(QuillStream* stream);
    int (*set)(QuillStream* stream, const char* value);
    CommandBits bits = CommandBits::none;
};

constexpr Variable kVariables[] = {
    {"SPIPORT", "0", 1, readSpiPort, Quill_Stream_SelectDevice},
    {"QUILLMODE", "SPI", 1, readNothing, Quill_Stream_SetMode},
    {"SPI_DELAY", "0", 0, readSpiDelay, setSpiDelay},
    {"SPICLOCK", "0", 0, readSpiClock, setSpiClock},
    {"SPIMUL", "0", 0, readSpiMul, setSpiMul},
    {"SPICMDBITS", "0", 0, readCmdBits, setNothing, CommandBits::both},
    {"SPICMDREADBITS", "0", 0, readCmdReadBits, setNothing, CommandBits::forReads},
    {"SPICMDWRITEBITS", "0", 0, readCmdWriteBits, setNothing, CommandBits::forWrites},
    {"SPIMAXCLOCK", "1070", 0, readSpiMaxClock, setSpiMaxClock},
    {"QUILLVERSION", nullptr, 0, readQuillVersion, setNothing},
    {"MUTEXNAME", nullptr, 0, readMutexName, setNothing},
};
static_assert(std::ranges::all_of(kVariables, [](const Variable& variable) {
    return variable.name != nullptr && variable.read != nullptr && variable.set != nullptr;
}));

constexpr bool isPublished(const Variable& variable) { return variable.defaultText != nullptr; }
constexpr auto kPublishedCount =
    static_cast<std::size_t>(std::ranges::count_if(kVariables, isPublished));
static_assert(std::ranges::is_partitioned(kVariables, isPublished), "published ones come first");

constexpr auto kVariableTable = [] {
    std::array<spifns_variable, kPublishedCount> table{};
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = {kVariables[i].name, kVariables[i].defaultText, kVariables[i].flag};
    return table;
}();

// The variable of that name; the end when there is none.
const Variable* find(std::span<const Variable> variables, const char* name) {
    return std::to_address(std::ranges::find_if(variables, [name](const Variable& variable) {
        return equalsIgnoringCase(name, variable.name);
    }));
}

// What may be set under a name; null when there is no such variable.
const Variable* settable(const char* name) {
    const auto index = static_cast<std::size_t>(Quill_FindVar(name));
    return index < kPublishedCount ? &kVariables[index] : nullptr;
}

const char* answer(QuillStream* stream, const char* name) {
    const Variable* const variable = find(kVariables, name);
    return variable == std::end(kVariables) ? "" : variable->read(stream);
}

}  // namespace

void Quill_GetKnownVars(const spifns_variable** list, std::uint32_t* count) {
    const Trace trace;
    if (list != nullptr) *list = kVariableTable.data();
    if (count != nullptr) *count = kVariableTable.size();
}

int Quill_FindVar(const char* name) {
    const Trace trace;
    return static_cast<int>(find(std::span(kVariables).first(kPublishedCount), name) - kVariables);
}

CommandBits commandBitsOf(const char* name) {
    const Variable* const variable = settable(name);
    return variable == nullptr ? CommandBits::none : variable->bits;
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
    const Variable* const variable = settable(name);
    return result = variable == nullptr ? 0 : variable->set(stream, value);
}

}  // namespace wrenlink
