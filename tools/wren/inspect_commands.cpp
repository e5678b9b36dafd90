#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "image.h"
#include "interruption.h"
#include "number.h"
#include "system.h"

namespace wren {

namespace {

// "0109", the version's two bytes in hexadecimal, is version 1.9.
std::string versionText(const std::string& variable) {
    const auto version = hexadecimalNumber(variable);
    return version ? fmt::format("{}.{}", *version >> 8, *version & 0xFF) : variable;
}

// The number in "quill100".
std::uint64_t idOf(const std::string& deviceId) {
    const std::size_t digits = std::min(deviceId.find_first_of("0123456789"), deviceId.size());
    return wholeNumber(deviceId.substr(digits)).value_or(0);
}

void listPort(Context& context, const Port& port, Json& list) {
    Json entry{{"key", port.key}, {"name", port.name}, {"id", nullptr}, {"firmware", nullptr}};
    std::string text;
    try {
        Session session(context.debugText);
        session.select(std::to_string(port.key));
        const std::uint64_t id = idOf(session.deviceId());
        const std::string firmware = versionText(session.get("QUILLVERSION"));
        entry["id"] = id;
        entry["firmware"] = firmware;
        text = fmt::format("id {:<10}  firmware {}", id, firmware);
    } catch (const Failure& failure) {
        entry["error"] = {{"code", failure.errorCode()}, {"text", failure.what()}};
        text = fmt::format("error {}: {}", failure.errorCode(), failure.what());
    }
    context.output.print("{:>2}  {:<20}  {}\n", port.key, port.name, text);
    list.push_back(std::move(entry));
}

const char* xapText(const Session& session) { return session.xapStopped() ? "stopped" : "running"; }

double numberOf(const std::string& text) { return decimalNumber(text).value_or(0); }

using Seconds = std::chrono::duration<double>;

// Calls work until the time is over, and returns how often a second.
template <class Work>
double rateOf(Seconds duration, Work work) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    std::uint64_t count = 0;
    Seconds taken{};
    do {
        if (interrupted()) throw Failure(ExitCode::interrupted, "interrupted");
        work();
        ++count;
        taken = Clock::now() - start;
    } while (taken < duration);
    return static_cast<double>(count) / taken.count();
}

}  // namespace

Connected::Connected(Context& context) : Session(context.debugText) {
    select(context.connection.port);
    for (const Setting& setting : context.connection.settings) set(setting);
}

void listPorts(Context& context) {
    const Session session(context.debugText);
    const std::vector<Port> ports = session.ports();
    Json& result = context.output.result();
    result["ports"] = Json::array();
    for (const Port& port : ports) listPort(context, port, result["ports"]);
    if (!ports.empty()) return;
    result["reason"] = system::whyNoAdapters();
    fmt::print(stderr, "wren: no adapters found; {}\n", system::whyNoAdapters());
}

void showInfo(Context& context) {
    const Connected session(context);
    const std::string device = session.deviceId();
    const std::string clock = session.get("SPICLOCK");
    const std::string maxClock = session.get("SPIMAXCLOCK");
    // How a field reads, and what stands for it in JSON.
    const struct {
        const char* label;
        std::string text;
        const char* key;
        Json value;
    } fields[] = {
        {"adapter", device, "adapter", device},
        {"id", fmt::to_string(idOf(device)), "id", idOf(device)},
        {"port", session.get("SPIPORT"), "port", wholeNumber(session.get("SPIPORT")).value_or(0)},
        {"firmware", versionText(session.get("QUILLVERSION")), "firmware",
         versionText(session.get("QUILLVERSION"))},
        {"delay", session.get("SPI_DELAY"), "delay",
         wholeNumber(session.get("SPI_DELAY")).value_or(0)},
        {"clock", clock + " kHz", "clock_khz", numberOf(clock)},
        {"max clock", maxClock + " kHz", "max_clock_khz", numberOf(maxClock)},
        {"mux device", session.get("SPIMUL"), "mux",
         wholeNumber(session.get("SPIMUL")).value_or(0)},
        {"read bits", session.get("SPICMDREADBITS"), "read_bits",
         wholeNumber(session.get("SPICMDREADBITS")).value_or(0)},
        {"write bits", session.get("SPICMDWRITEBITS"), "write_bits",
         wholeNumber(session.get("SPICMDWRITEBITS")).value_or(0)},
        {"XAP", xapText(session), "xap", xapText(session)},
    };
    for (const auto& field : fields) {
        context.output.print("{:<16}{}\n", field.label, field.text);
        context.output.result()[field.key] = field.value;
    }
}

void showXapState(Context& context) {
    const Connected session(context);
    const char* const state = xapText(session);
    context.output.print("{}\n", state);
    context.output.result()["xap"] = state;
}

void measureSpeed(Context& context, const SpeedRequest& request) {
    // What one exchange with the adapter can carry; a read of so many makes as many exchanges.
    constexpr std::size_t kWordsPerExchange = 505;
    constexpr std::size_t kExchanges = 16;
    constexpr double kBitsPerWord = 16;
    Connected session(context);
    noteInterrupts();
    std::vector<std::uint16_t> words(kWordsPerExchange * kExchanges);
    const Seconds duration(request.seconds / 2);
    const double reads = rateOf(duration, [&] { session.read(0, words); });
    const double singles = rateOf(duration, [&] { session.read(0, std::span(words).first(1)); });
    const double clock = numberOf(session.get("SPICLOCK"));
    const double wordRate = reads * static_cast<double>(words.size());
    const double permitted = clock * 1000 / kBitsPerWord;

    Output& output = context.output;
    output.print("long reads      {:.0f} words/s in {:.0f} requests/s\n", wordRate,
                 reads * kExchanges);
    output.print("single words    {:.0f} requests/s\n", singles);
    output.print("the clock       {:.0f} kHz, permits {:.0f} words/s; reached {:.0f} %\n", clock,
                 permitted, 100 * wordRate / permitted);
    output.result() = {{"words_per_second", wordRate},
                       {"requests_per_second", reads * kExchanges},
                       {"single_word_requests_per_second", singles},
                       {"clock_khz", clock},
                       {"permitted_words_per_second", permitted}};
}

}  // namespace wren
