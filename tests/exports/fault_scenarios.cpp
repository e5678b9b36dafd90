#include "tests/exports/fault_scenarios.h"

#include "tests/faults/faults.h"

namespace wrenlink::test {
namespace {

using Needs = Step::Needs;

// Calls an export, in either form.
template <class Plain, class ById, class... Arguments>
auto call(const FaultyHost& host, Plain* plain, ById* byId, Arguments... arguments) {
    const FaultWindow window;
    return host.legacy ? plain(arguments...) : byId(host.id, arguments...);
}
template <class Export, class... Arguments>
auto call(Export* function, Arguments... arguments) {
    const FaultWindow window;
    return function(arguments...);
}

std::string get(const FaultyHost& host, const char* name) {
    return call(host, spifns_getvar, spifns_stream_getvar, name);
}

int run(const FaultyHost& host, std::vector<SpiAction> actions) {
    return call(host, spifns_sequence, spifns_stream_sequence, actions.data(),
                static_cast<std::uint32_t>(actions.size()));
}

// Sets a variable; once it is set, the adapter must hold what a host takes it to.
std::string set(FaultyHost& host, const char* name, const std::string& value,
                const char* held = nullptr, const std::string& expected = "") {
    const int status = run(host, {setting(name, value.c_str())});
    if (status != 0 || held == nullptr) return std::to_string(status);
    const std::string found = std::to_string(host.simulator.number(held));
    return found == expected ? "0" : "0, but the adapter has " + found;
}

// Command bits, as variables show them.
std::string bits(const FaultyHost& host) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(host.turn));
    return text;
}

// What callbacks were told.
std::string told;

void listen(const char* text, void*) {
    const FaultPause pause;
    told += text;
}
spifns_legacy_debug_callback legacyListener = [](const char* text) { listen(text, nullptr); };

// ---- Steps -------------------------------------------------------------------------------------

std::string load(FaultyHost& host) {
    const FaultWindow window;
    host.library.emplace();
    return "";
}

std::string open(FaultyHost& host) {
    const int status = host.legacy ? call(spifns_init) : call(spifns_stream_init, &host.id);
    if (!host.legacy && (status == 0) != (host.id < SPIFNS_MAX_STREAMS)) return "wrong id";
    return std::to_string(status) + ", " + std::to_string(call(spifns_count_streams)) + " open";
}

std::string select(FaultyHost& host) { return set(host, "SPIPORT", host.key); }

std::string listPorts(FaultyHost&) {
    std::string ports;
    call(
        spifns_enumerate_ports,
        [](std::uint32_t key, const char* name, void* context) {
            const FaultPause pause;
            *static_cast<std::string*>(context) += std::to_string(key) + " " + name + ", ";
        },
        static_cast<void*>(&ports));
    return ports;
}

std::string needNoStream(FaultyHost&) {
    call(spifns_chip_select);
    call(spifns_stream_chip_select);
    const spifns_variable* list = nullptr;
    std::uint32_t count = 0;
    call(spifns_getvarlist, &list, &count);
    return std::to_string(count) + " variables from " + list[0].name + " on, version " +
           std::to_string(call(spifns_get_version));
}

std::string setDelay(FaultyHost& host) {
    const std::string delay = std::to_string(host.turn);
    return set(host, "SPI_DELAY", delay, "delay", delay);
}

// Whatever is remembered of it, the delay is the adapter's.
std::string getDelay(FaultyHost& host) {
    const std::string delay = get(host, "SPI_DELAY");
    return delay == std::to_string(host.simulator.number("delay")) ? "the adapter's" : delay;
}

std::string setClock(FaultyHost& host) { return set(host, "SPICLOCK", "500", "delay", "12"); }
std::string getClock(FaultyHost& host) { return get(host, "SPICLOCK"); }
std::string limitClock(FaultyHost& host) { return set(host, "SPIMAXCLOCK", "800"); }

std::string setMode(FaultyHost& host) {
    const bool jtag = host.turn % 2 != 0;
    return set(host, "QUILLMODE", jtag ? "JTAG" : "SPI", "mode", jtag ? "1" : "0");
}

std::string setListener(FaultyHost& host) {
    host.legacy ? call(spifns_set_debug_callback, &legacyListener)
                : call(spifns_stream_set_debug_callback, host.id, listen, nullptr);
    return "";
}

std::string setDevice(FaultyHost& host) {
    told.clear();
    const std::string status = set(host, "SPIMUL", "3", "device", "3");
    return status == "0" ? told : status;
}

std::string setBits(FaultyHost& host) { return set(host, "SPICMDBITS", bits(host)); }

std::string getOthers(FaultyHost& host) {
    std::string values;
    for (const char* name : {"SPIPORT", "QUILLVERSION", "SPIMAXCLOCK", "MUTEXNAME", "SPIMUL"})
        values += get(host, name) + " ";
    for (const char* name : {"SPICMDBITS", "SPICMDREADBITS", "SPICMDWRITEBITS"})
        if (get(host, name) != bits(host)) values += name;
    return values;
}

std::string getDeviceId(FaultyHost& host) {
    char id[16] = "";
    if (!host.legacy) call(spifns_stream_get_device_id, host.id, id, sizeof id);
    return host.legacy ? "quill100" : id;
}

Words wordsOf(const FaultyHost& host) {
    return countingWords(600, static_cast<std::uint16_t>(host.turn));
}

// An access in so many that they need memory.
std::vector<SpiAction> inPieces(SpiAction access) {
    constexpr std::uint32_t kPiece = 6;
    std::vector<SpiAction> pieces(access.u.memory.length / kPiece, access);
    auto* memory = &access.u.memory;
    for (SpiAction& piece : pieces) {
        piece.u.memory = {0, memory->address, kPiece, 0, memory->data};
        memory->address += kPiece;
        memory->data += kPiece;
    }
    return pieces;
}

std::string write(FaultyHost& host) {
    const Words words = wordsOf(host);
    if (run(host, inPieces(writeFrom(0x100, words))) != 0) return "1";
    return host.simulator.number("writebits") == host.turn ? "0" : "0, with wrong bits";
}

std::string read(FaultyHost& host) {
    const Words untouched(600, 0xEEEE);
    Words words = untouched;
    const int status = run(host, inPieces(readInto(0x100, words)));
    if (status != 0) return words.back() == untouched.back() ? "1" : "1, with words";
    if (words != wordsOf(host)) return "0, but wrong words";
    return host.simulator.number("readbits") == host.turn ? "0" : "0, with wrong bits";
}

std::string startMgcmd(FaultyHost& host) {
    return std::to_string(call(host, spifns_mgcmd_init, spifns_stream_mgcmd_init,
                               std::uint16_t{0xF}, std::uint16_t{1}));
}

std::string sendMgcmd(FaultyHost& host) {
    Words words = {0x10, 0x21};
    const int status =
        call(host, spifns_mgcmd_cmd, spifns_stream_mgcmd_cmd, words.data(), std::uint16_t{2}, 1U);
    const Words expected = status == 0 ? Words{0x20, 0x2F} : Words{0x10, 0x21};
    return std::to_string(status) + (words == expected ? "" : ", with wrong words");
}

std::string queryXap(FaultyHost& host) {
    return std::to_string(
        call(host, spifns_marigold_xap_stopped, spifns_stream_marigold_xap_stopped));
}

std::string command(FaultyHost& host, const char* name) {
    const char* const answer = call(host, spifns_command, spifns_stream_command, name);
    return answer == nullptr ? "" : answer;
}
std::string enterDfu(FaultyHost& host) { return command(host, "DFU"); }

std::string slowDown(FaultyHost& host) { return command(host, "SPISLOWER"); }

// An error of the thread's own, from its making to its end.
std::string makeError(FaultyHost& host) {
    const std::string answer = get(host, "SPIPORT");
    const char* text = nullptr;
    const int code = call(spifns_get_last_error, static_cast<std::uint16_t*>(nullptr), &text);
    const std::string error = std::to_string(code) + " " + text;
    const int same = call(spifns_get_last_error32, static_cast<std::uint32_t*>(nullptr), &text);
    call(spifns_clear_last_error);
    return answer + error + (same == code ? "" : " and another");
}

std::string close(FaultyHost& host) {
    host.legacy ? call(spifns_close) : call(spifns_stream_close, host.id);
    return std::to_string(call(spifns_count_streams)) + " open";
}

std::string unload(FaultyHost& host) {
    const FaultWindow window;
    host.library.reset();
    return "";
}

const Step kLoad = {"load", load, ""};
const Step kOpen = {"open", open, "0, 1 open", "0, 1 open", "1, 0 open"};
const Step kSelect = {"select", select, "0", "0", "1", "", Needs::adapter};
const Step kNoStream = {"no stream", needNoStream, "9 variables from SPIPORT on, version 260"};
const Step kPorts = {"ports", listPorts, "0 USB SPI (100), 7 USB SPI (100), ", "", ""};
const Step kError = {"error", makeError, "262 Invalid stream", "257 Out of memory",
                     "0 ",    "",        Needs::errorStore};
const Step kGetDelay = {"get delay", getDelay, "the adapter's", "0", "", "Unable to get delays"};
const Step kSetDelay = {"set delay",  setDelay, "0", "1", "1", "Unable to set delays",
                        Needs::delays};
const Step kLimitClock = {"limit clock", limitClock, "0"};
const Step kSetClock = {"set clock", setClock, "0", "1", "1", "Unable to set delays"};
const Step kGetClock = {"get clock",   getClock, "513.874615",
                        "4000.000000", "",       "Unable to get delays"};
const Step kSetMode = {"set mode", setMode, "0"};
const Step kListen = {"listen", setListener, ""};
const Step kSetDevice = {"set device", setDevice, "Quill mul dev 3",
                         "1",          "1",       "Unable to set multipled device"};
const Step kSetBits = {"set bits", setBits, "0"};
const Step kGetOthers = {"get others", getOthers, "0 0109 800.000000 usbspi_mutex_0 3 "};
const Step kGetId = {"get id", getDeviceId, "quill100"};
const Step kWrite = {"write", write, "0", "1", "1", "Unable to send sequence"};
const Step kRead = {"read", read, "0", "1", "1", "Unable to send sequence"};
const Step kStartMgcmd = {"MGCMD start", startMgcmd, "0", "1", "1", "Unable to initialise MGCMDs"};
const Step kMgcmd = {"MGCMD", sendMgcmd, "0", "1", "1", "MGCMD cmd failed"};
const Step kXap = {"XAP", queryXap, "1", "-1", "-1"};
const Step kDfu = {"DFU", enterDfu, "", "", "", "Unable to enable DFU mode"};
const Step kSlower = {"slower", slowDown, "",
                      "",       "",       "Unable to set delays: Unable to slow down SPI"};
const Step kClose = {.what = "close", .run = close, .right = "0 open", .always = true};
const Step kUnload = {.what = "unload", .run = unload, .right = "", .always = true};

}  // namespace

const std::vector<FaultScenario> kFaultScenarios = {
    {"life", 0, {kLoad, kOpen, kSelect, kSetDelay, kNoStream, kClose, kUnload}},
    {"mapFile", 0, {kLoad, kOpen, kSelect, kPorts, kClose, kUnload}, "7=100\n", "7"},
    {"firstError", 0, {kLoad, kError, kUnload}},
    {"settings",
     3,
     {kLoad, kOpen, kSelect, kGetDelay, kSetDelay, kLimitClock, kSetClock, kSetMode, kGetClock,
      kListen, kSetDevice, kSetBits, kGetOthers, kGetId}},
    {"memory", 3, {kLoad, kOpen, kSelect, kSetBits, kWrite, kRead}},
    {"chip",
     3,
     {kLoad, kOpen, kSelect, kStartMgcmd, kMgcmd, kXap, kDfu, kSetDelay, kSlower, kGetDelay}},
};

void FaultyHost::end() {
    if (library) {
        close(*this);
        unload(*this);
    }
    std::exchange(told, {});
}

}  // namespace wrenlink::test
