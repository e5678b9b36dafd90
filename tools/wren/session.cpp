#include "session.h"

#include <wrenlink/spifns.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "failure.h"
#include "terminal.h"

namespace wren {

namespace {

// One line: the operating system's texts may hold line breaks.
std::string flattened(std::string_view text) {
    constexpr std::string_view kBreaks = "\r\n";
    std::string line;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t stop = std::min(text.find_first_of(kBreaks, at), text.size());
        line += text.substr(at, stop - at);
        at = std::min(text.find_first_not_of(kBreaks, stop), text.size());
        const bool joins = stop < at && at < text.size() && text[at] != ':';
        if (joins) line += ' ';
    }
    return line;
}

ExitCode exitCodeOf(int errorCode) {
    switch (errorCode) {
        case SPIFNS_ERROR_NO_DEVICE:
            return ExitCode::noAdapter;
        case SPIFNS_ERROR_OPEN:
        case SPIFNS_ERROR_IO:
            return ExitCode::unreachable;
        default:
            return ExitCode::failed;
    }
}

[[noreturn]] void throwLastError() {
    const char* text = "";
    const int code = spifns_get_last_error(nullptr, &text);
    throw Failure(exitCodeOf(code), flattened(text), code);
}

void check(int status) {
    if (status != 0) throwLastError();
}

// For calls that report a failure in the last error alone, which must be clear before them.
void checkLastError() {
    if (spifns_get_last_error(nullptr, nullptr) != SPIFNS_ERROR_NONE) throwLastError();
}

extern "C" void addPort(std::uint32_t key, const char* name, void* ports) {
    static_cast<std::vector<Port>*>(ports)->push_back({key, name});
}

extern "C" void showDebugText(const char* text, void* shown) {
    const std::string line = flattened(text);
    if (*static_cast<DebugText*>(shown) != DebugText::all && !line.starts_with("WARNING")) return;
    terminal::clearLine();
    std::fprintf(stderr, "wren: %s\n", line.c_str());
}

SpiAction memoryAction(std::uint32_t type, std::uint32_t address, std::uint16_t* words,
                       std::size_t count) {
    SpiAction action{};
    action.type = type;
    action.u.memory.address = address;
    action.u.memory.length = static_cast<std::uint32_t>(count);
    action.u.memory.data = words;
    return action;
}

}  // namespace

Session::Session(DebugText shown) : shown_(shown) {
    check(spifns_stream_init(&stream_));
    spifns_stream_set_debug_callback(stream_, showDebugText, &shown_);
}

Session::~Session() { spifns_stream_close(stream_); }

std::vector<Port> Session::ports() const {
    std::vector<Port> ports;
    spifns_enumerate_ports(addPort, &ports);
    return ports;
}

void Session::select(const std::string& keyOrId) {
    spifns_clear_last_error();
    set({"SPIPORT", keyOrId});
    // The library selects an adapter that is silent, too.
    checkLastError();
}

std::string Session::deviceId() const {
    std::array<char, 32> buffer{};
    check(spifns_stream_get_device_id(stream_, buffer.data(), buffer.size()));
    return buffer.data();
}

void Session::set(const Setting& setting) {
    SpiAction action{};
    action.type = SPIFNS_SETVAR;
    action.u.variable.var = setting.name.c_str();
    action.u.variable.value = setting.value.c_str();
    check(spifns_stream_sequence(stream_, &action, 1));
}

std::string Session::get(const std::string& name) const {
    spifns_clear_last_error();
    std::string value = spifns_stream_getvar(stream_, name.c_str());
    checkLastError();
    return value;
}

void Session::read(std::uint32_t address, std::span<std::uint16_t> words) {
    SpiAction action = memoryAction(SPIFNS_READ, address, words.data(), words.size());
    check(spifns_stream_sequence(stream_, &action, 1));
}

void Session::write(std::uint32_t address, std::span<const std::uint16_t> words) {
    // One record serves both directions; a write only takes from it.
    auto* data = const_cast<std::uint16_t*>(words.data());
    SpiAction action = memoryAction(SPIFNS_WRITE, address, data, words.size());
    check(spifns_stream_sequence(stream_, &action, 1));
}

bool Session::xapStopped() const {
    const spifns_xap_state state = spifns_stream_marigold_xap_stopped(stream_);
    if (state == SPIFNS_XAP_ERROR) throwLastError();
    return state == SPIFNS_XAP_STOPPED;
}

void Session::command(const std::string& name) {
    spifns_clear_last_error();
    spifns_stream_command(stream_, name.c_str());
    checkLastError();
}

}  // namespace wren
