#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "interruption.h"
#include "number.h"

namespace wren {

namespace {

const char* xapText(const Session& session) { return session.xapStopped() ? "stopped" : "running"; }

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

Work showInfo() {
    return [](Adapter& adapter) {
        const Session& session = adapter.session;
        const auto show = [&](const char* label, const char* key, const std::string& text,
                              Json value) {
            adapter.report.print("{:<16}{}\n", label, text);
            adapter.report.result()[key] = std::move(value);
        };
        const auto showNumber = [&](const char* label, const char* key, const char* variable) {
            const std::string text = session.get(variable);
            show(label, key, shownValue(variable, text), wholeNumber(text).value_or(0));
        };
        const auto showClock = [&](const char* label, const char* key, const char* variable) {
            const std::string text = session.get(variable);
            show(label, key, shownValue(variable, text), decimalNumber(text).value_or(0));
        };
        const std::string device = session.deviceId();
        const std::string firmware = session.firmware();
        show("adapter", "adapter", device, device);
        show("id", "id", fmt::to_string(session.id()), session.id());
        showNumber("port", "port", "SPIPORT");
        show("firmware", "firmware", firmware, firmware);
        showNumber("delay", "delay", "SPI_DELAY");
        showClock("clock", "clock_khz", "SPICLOCK");
        showClock("max clock", "max_clock_khz", "SPIMAXCLOCK");
        showNumber("mux device", "mux", "SPIMUL");
        showNumber("read bits", "read_bits", "SPICMDREADBITS");
        showNumber("write bits", "write_bits", "SPICMDWRITEBITS");
        const char* const state = xapText(session);
        show("XAP", "xap", state, state);
    };
}

Work showXapState() {
    return briefly([](Adapter& adapter) {
        const char* const state = xapText(adapter.session);
        adapter.report.print("{}\n", state);
        adapter.report.result()["xap"] = state;
    });
}

Work measureSpeed(const SpeedRequest& request) {
    // What one exchange with the adapter can carry; a read of so many makes as many exchanges.
    static constexpr std::size_t kWordsPerExchange = 505;
    static constexpr std::size_t kExchanges = 16;
    static constexpr double kBitsPerWord = 16;
    return [request](Adapter& adapter) {
        Session& session = adapter.session;
        noteInterrupts();
        std::vector<std::uint16_t> words(kWordsPerExchange * kExchanges);
        const Seconds duration(request.seconds / 2);
        const double reads = rateOf(duration, [&] { session.read(0, words); });
        const double singles =
            rateOf(duration, [&] { session.read(0, std::span(words).first(1)); });
        const double clock = decimalNumber(session.get("SPICLOCK")).value_or(0);
        const double wordRate = reads * static_cast<double>(words.size());
        const double permitted = clock * 1000 / kBitsPerWord;

        Report& report = adapter.report;
        report.print("long reads      {:.0f} words/s in {:.0f} requests/s\n", wordRate,
                     reads * kExchanges);
        report.print("single words    {:.0f} requests/s\n", singles);
        report.print("the clock       {:.0f} kHz, permits {:.0f} words/s; reached {:.0f} %\n",
                     clock, permitted, 100 * wordRate / permitted);
        report.result().update({{"words_per_second", wordRate},
                                {"requests_per_second", reads * kExchanges},
                                {"single_word_requests_per_second", singles},
                                {"clock_khz", clock},
                                {"permitted_words_per_second", permitted}});
    };
}

}  // namespace wren
