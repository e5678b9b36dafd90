#include "session.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>

#include "clocks.h"
#include "failure.h"
#include "number.h"
#include "system.h"

namespace wren {

namespace {

Failure lastFailure() {
    const char* text = "";
    std::uint16_t address = 0;
    const int code = spifns_get_last_error(&address, &text);
    const Remedy& remedy = remedyFor(code);
    Failure failure(remedy.exitCode, flattened(system::inUtf8(text)), remedy.hint, code);
    // The library takes over a failed read's address with its two bytes exchanged.
    if (std::string_view(text).starts_with("Read failed"))
        failure.setWords({{static_cast<std::uint32_t>((address & 0xFF) << 8 | address >> 8), 0}});
    return failure;
}

// The number in "USB SPI (100)" and "quill100".
std::uint32_t numberIn(std::string_view name) {
    constexpr std::string_view kDigits = "0123456789";
    const std::size_t start = std::min(name.find_first_of(kDigits), name.size());
    name.remove_prefix(start);
    const auto number = wholeNumber(name.substr(0, name.find_first_not_of(kDigits)));
    return static_cast<std::uint32_t>(number.value_or(0));
}

extern "C" void addPort(std::uint32_t key, const char* name, void* ports) {
    static_cast<std::vector<Port>*>(ports)->push_back({key, name, numberIn(name)});
}

// The selection key that a user's text means. The library takes a text that is no number for 0.
std::optional<std::uint32_t> selectionKey(std::string_view text) {
    constexpr std::string_view kPrefix = "quill";
    if (text.starts_with(kPrefix)) text.remove_prefix(kPrefix.size());
    const auto key = wholeNumber(text);
    if (!key || *key > UINT32_MAX) return std::nullopt;
    return static_cast<std::uint32_t>(*key);
}

}  // namespace

const Port* portNamed(const std::vector<Port>& ports, std::string_view text) {
    const auto key = selectionKey(text);
    if (!key) return nullptr;
    auto found = std::ranges::find(ports, *key, &Port::key);
    if (found == ports.end()) found = std::ranges::find(ports, *key, &Port::id);
    return found != ports.end() ? &*found : nullptr;
}

std::string versionText(std::uint32_t version) {
    return fmt::format("{}.{}", version >> 8, version & 0xFF);
}

SpiAction memoryAction(std::uint32_t type, std::uint32_t address, std::uint16_t* words,
                       std::size_t count) noexcept {
    SpiAction action{};
    action.type = type;
    action.u.memory.address = address;
    action.u.memory.length = static_cast<std::uint32_t>(count);
    action.u.memory.data = words;
    return action;
}

SpiAction settingAction(const Setting& setting) noexcept {
    SpiAction action{};
    action.type = SPIFNS_SETVAR;
    action.u.variable.var = setting.name.c_str();
    action.u.variable.value = setting.value.c_str();
    return action;
}

Session::Session(DebugText& receiver) : receiver_(receiver) {
    if (spifns_stream_init(&stream_) != 0) {
        const Failure failure = lastFailure();
        if (failure.errorCode() != SPIFNS_ERROR_NO_DEVICE) throw Failure(failure);
        // The map file that says which key chooses which adapter.
        throw Failure(ExitCode::failed, failure.what(),
                      "a line reads KEY=ID, with a key from 0 to 31", failure.errorCode());
    }
    spifns_stream_set_debug_callback(stream_, takeDebugText, this);
}

Session::~Session() { spifns_stream_close(stream_); }

void Session::takeDebugText(const char* text, void* session) {
    const Session& self = *static_cast<Session*>(session);
    self.receiver_.take(self.mark_, system::inUtf8(text));
}

void Session::throwLastError() const {
    Failure failure = lastFailure();
    if (failure.errorCode() == SPIFNS_ERROR_NO_DEVICE) failure.setHint(choices());
    throw Failure(failure);
}

void Session::check(int status) const {
    if (status != 0) throwLastError();
}

void Session::checkLastError() const {
    if (spifns_get_last_error(nullptr, nullptr) != SPIFNS_ERROR_NONE) throwLastError();
}

std::vector<Port> Session::ports() const {
    std::vector<Port> ports;
    spifns_enumerate_ports(addPort, &ports);
    return ports;
}

std::string Session::choices() const {
    std::vector<std::string> names;
    for (const Port& port : ports()) names.push_back(fmt::format("{}: {}", port.key, port.name));
    if (names.empty()) return system::whyNoAdapters();
    return fmt::format("there {} {}", names.size() == 1 ? "is" : "are", fmt::join(names, ", "));
}

void Session::select(const std::string& adapter) {
    const auto key = selectionKey(adapter);
    if (!key)
        throw Failure(ExitCode::noAdapter, fmt::format("no adapter '{}'", adapter), choices());
    spifns_clear_last_error();
    set({"SPIPORT", std::to_string(*key)});
    // The library selects an adapter that is silent, too.
    checkLastError();
    step(fmt::format("selected {} at port {}", deviceId(), get("SPIPORT")));
}

std::uint32_t Session::id() const { return numberIn(deviceId()); }

std::string Session::deviceId() const {
    std::array<char, 32> buffer{};
    check(spifns_stream_get_device_id(stream_, buffer.data(), buffer.size()));
    return buffer.data();
}

std::string Session::firmware() const {
    // "0109", the version's two bytes in hexadecimal, is version 1.9.
    const std::string text = get("QUILLVERSION");
    const auto version = hexadecimalNumber(text);
    return version ? versionText(static_cast<std::uint32_t>(*version)) : text;
}

void Session::set(const Setting& setting) {
    SpiAction action = settingAction(setting);
    check(spifns_stream_sequence(stream_, &action, 1));
}

void Session::setAll(std::span<const Setting> settings) {
    requireClocks(settings);
    for (const Setting& setting : settings) {
        set(setting);
        step(fmt::format("set {} to {}", setting.name, shownValue(setting.name, setting.value)));
        if (setting.name == "SPIMAXCLOCK") hasMaximum_ = true;
        if (setting.name != "SPICLOCK") continue;
        const std::string asked = shownValue(setting.name, setting.value);
        const std::string got = shownValue(setting.name, get(setting.name));
        if (got != asked)
            receiver_.tell(fmt::format("{}asked for a clock of {}, got {}", mark_, asked, got));
    }
}

void Session::requireClocks(std::span<const Setting> settings) const {
    wren::requireClocks(settings, decimalNumber(get("SPIMAXCLOCK")).value_or(0));
}

void Session::heedMaximum() const {
    if (hasMaximum_) requireClocks(std::array{Setting{"SPI_DELAY", get("SPI_DELAY")}});
}

std::string Session::get(const std::string& name) const {
    spifns_clear_last_error();
    std::string value = spifns_stream_getvar(stream_, name.c_str());
    checkLastError();
    return value;
}

void Session::read(std::uint32_t address, std::span<std::uint16_t> words) {
    heedMaximum();
    SpiAction action = memoryAction(SPIFNS_READ, address, words.data(), words.size());
    check(spifns_stream_sequence(stream_, &action, 1));
}

void Session::submit(std::span<SpiAction> actions) {
    if (std::ranges::find(actions, SPIFNS_SETVAR, &SpiAction::type) == actions.end()) heedMaximum();
    step(fmt::format("sending a sequence of {} actions", actions.size()));
    check(spifns_stream_sequence(stream_, actions.data(),
                                 static_cast<std::uint32_t>(actions.size())));
}

bool Session::xapStopped() const {
    heedMaximum();
    step("asking for the state of the XAP processor");
    const spifns_xap_state state = spifns_stream_marigold_xap_stopped(stream_);
    if (state == SPIFNS_XAP_ERROR) throwLastError();
    return state == SPIFNS_XAP_STOPPED;
}

void Session::command(const std::string& name) {
    step("sending " + name);
    spifns_clear_last_error();
    spifns_stream_command(stream_, name.c_str());
    checkLastError();
}

void Session::prepareMgcmd(std::uint16_t first, std::uint16_t second) {
    step("preparing MGCMD commands");
    check(spifns_stream_mgcmd_init(stream_, first, second));
}

void Session::mgcmd(std::span<std::uint16_t> words, bool strict) {
    heedMaximum();
    step(fmt::format("sending an MGCMD command of {} words", words.size()));
    check(spifns_stream_mgcmd_cmd(stream_, words.data(), static_cast<std::uint16_t>(words.size()),
                                  strict ? 1 : 0));
}

}  // namespace wren
