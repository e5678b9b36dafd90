#include "sim/model/command.h"

#include <array>

namespace quillsim {
namespace {

// Why a command fails; empty when it does not.
using Failure = std::string_view;
using Arguments = std::span<const std::string_view>;

constexpr Failure kDone{};
constexpr Failure kBadNumber = "not a number in range";
constexpr std::uint64_t kWord = 0xFFFF;
constexpr std::uint64_t kLong = 0xFFFFFFFF;
constexpr std::size_t kMostWords = 64;

// One command being carried out; adapter is null for those that name none.
struct Call {
    const Bench& bench;
    Adapter* adapter;
    std::size_t number;
    Arguments arguments;  // those after the adapter
    TextWriter& out;
};

// Reads a word, or a number of 32 bits for what holds more.
template <class Value>
bool readValue(std::string_view text, Value& value) {
    std::uint64_t number = 0;
    if (!readNumber(text, sizeof(Value) == 2 ? kWord : kLong, number)) return false;
    value = static_cast<Value>(number);
    return true;
}

void printFirmware(TextWriter& out, std::uint16_t firmware) {
    out.decimal(firmware >> 8).text(".").decimal(firmware & 0xFF);
}

void printState(TextWriter& out, std::size_t number, const Adapter& adapter) {
    const Settings& settings = adapter.settings;
    out.field("adapter").decimal(number);
    out.field("plugged").decimal(adapter.plugged ? 1 : 0);
    out.field("id").decimal(settings.id);
    out.field("firmware");
    printFirmware(out, settings.firmware);
    out.field("delay").decimal(settings.spi.delay);
    out.field("mode").decimal(settings.spi.mode);
    out.field("device").decimal(settings.spi.device);
    out.field("readbits").hex(settings.spi.readBits, 4);
    out.field("writebits").hex(settings.spi.writeBits, 4);
    out.field("mgcmd").text(settings.mgcmdReady ? "ready" : "idle");
    out.field("mgcmd-first").hex(settings.mgcmdFirst, 4);
    out.field("mgcmd-second").hex(settings.mgcmdSecond, 4);
    out.field("xap");
    settings.xapFails ? out.text("failing") : out.hex(settings.xap, 4);
    out.field("dfu").decimal(settings.dfu ? 1 : 0);
    out.field("answer-us").decimal(settings.answerMicroseconds);
    out.field("faults").decimal(adapter.faults.armed().size());
    out.endLine();
}

Failure runList(Call& call) {
    for (std::size_t i = 0; i < call.bench.adapters.size(); ++i) {
        printState(call.out, i, *call.bench.adapters[i]);
    }
    return kDone;
}

Failure runState(Call& call) {
    printState(call.out, call.number, *call.adapter);
    return kDone;
}

Failure runCount(Call& call) {
    const OpenCounts& opens = call.adapter->opens();
    call.out.field("requests").decimal(call.adapter->log.last());
    call.out.field("opens").decimal(opens.total);
    call.out.field("open").decimal(opens.now);
    call.out.field("peak").decimal(opens.peak).endLine();
    return kDone;
}

Failure runLog(Call& call) {
    const std::string_view which = call.arguments.empty() ? "1" : call.arguments[0];
    const bool forgets = which == "clear" || which == "take";
    std::uint64_t from = 1;
    if (!forgets && !readNumber(which, ~std::uint64_t{0}, from)) return kBadNumber;
    if (which != "clear") call.adapter->log.print(call.out, from);
    // A log that did not fit the answer is kept, so that it can be asked for again.
    if (forgets && call.out.isWhole()) call.adapter->clearLog();
    return kDone;
}

// "code=CODE", "skip=COUNT", "always" or a count.
bool readFaultOption(std::string_view option, Fault& fault) {
    std::uint64_t value = 0;
    if (option == "always") {
        fault.remaining = kForGood;
        return true;
    }
    if (option.starts_with("code=")) {
        option.remove_prefix(5);
        if (!readNumber(option, kWord, value) || value == 0) return false;
        fault.code = static_cast<Code>(value);
        return true;
    }
    const bool isSkip = option.starts_with("skip=");
    if (isSkip) option.remove_prefix(5);
    if (!readNumber(option, kForGood - 1, value)) return false;
    (isSkip ? fault.skip : fault.remaining) = static_cast<std::uint32_t>(value);
    return isSkip || value > 0;
}

Failure runFault(Call& call) {
    const FaultFacts* facts = findFault(call.arguments[0]);
    if (facts == nullptr) return "no such fault";
    Arguments rest = call.arguments.subspan(1);
    if (rest.size() < facts->values) return "the fault needs a value";

    Fault fault;
    fault.kind = facts->kind;
    std::array<std::uint64_t, 2> values{};
    for (std::size_t i = 0; i < facts->values; ++i) {
        if (!readNumber(rest[i], kLong, values[i])) return kBadNumber;
    }
    fault.value = static_cast<std::uint32_t>(values[0]);
    fault.second = static_cast<std::uint32_t>(values[1]);
    if (fault.kind == FaultKind::runt && (fault.value < 1 || fault.value > 3)) return kBadNumber;
    for (const std::string_view option : rest.subspan(facts->values)) {
        if (!readFaultOption(option, fault)) return "not a count, always, code= or skip=";
    }
    return call.adapter->faults.arm(fault) ? kDone : "too many faults are armed";
}

Failure runClear(Call& call) {
    call.adapter->faults.clear();
    return kDone;
}

Failure runXap(Call& call) {
    Settings& settings = call.adapter->settings;
    const std::string_view state = call.arguments[0];
    if (state == "running" || state == "stopped") {
        settings.xap = state == "stopped" ? 1 : 0;
    } else if (state != "failing" && !readValue(state, settings.xap)) {
        return "not running, stopped, failing or a word";
    }
    settings.xapFails = state == "failing";
    return kDone;
}

Failure runFaulty(Call& call) {
    std::uint16_t first = 0;
    std::uint16_t last = 0;
    if (call.arguments.size() == 1 && call.arguments[0] == "none") {
        call.adapter->clearFaulty();
        return kDone;
    }
    const bool isRange = call.arguments.size() == 2 && readValue(call.arguments[0], first) &&
                         readValue(call.arguments[1], last) && first <= last;
    if (!isRange) return "not none or a first and a last address";
    call.adapter->setFaulty(first, last);
    return kDone;
}

Failure runPeek(Call& call) {
    std::uint16_t address = 0;
    std::uint64_t count = 0;
    if (!readValue(call.arguments[0], address)) return kBadNumber;
    if (!readNumber(call.arguments[1], kMemoryWords, count)) return kBadNumber;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (i > 0) call.out.text(" ");
        call.out.hex(call.adapter->word(address + i), 4);
    }
    call.out.endLine();
    return kDone;
}

Failure runPoke(Call& call) {
    std::array<std::uint16_t, kMostWords> words{};
    std::uint16_t address = 0;
    const Arguments texts = call.arguments.subspan(1);
    if (!readValue(call.arguments[0], address)) return kBadNumber;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (!readValue(texts[i], words[i])) return kBadNumber;
    }
    for (std::uint32_t i = 0; i < texts.size(); ++i) {
        call.adapter->setWord(address + i, words[i]);
    }
    return kDone;
}

Failure setPlugged(Call& call, bool plugged) {
    if (call.adapter->plugged == plugged) return kDone;
    const bool canPlug = call.bench.plug != nullptr;
    if (!canPlug || !call.bench.plug(call.bench.context, call.number, plugged)) {
        return "the system does not let the adapter come or go";
    }
    call.adapter->plugged = plugged;
    return kDone;
}

Failure runPlug(Call& call) { return setPlugged(call, true); }
Failure runUnplug(Call& call) { return setPlugged(call, false); }

struct Setting {
    std::string_view name;
    bool (*set)(Settings& settings, std::string_view text);
    Failure failure = kBadNumber;
};

constexpr auto kSettings = std::to_array<Setting>({
    {"id", [](Settings& to, std::string_view text) { return readValue(text, to.id); }},
    {"firmware",
     [](Settings& to, std::string_view text) { return readFirmware(text, to.firmware); },
     "not MAJOR.MINOR"},
    {"delay", [](Settings& to, std::string_view text) { return readValue(text, to.spi.delay); }},
    {"mode", [](Settings& to, std::string_view text) { return readValue(text, to.spi.mode); }},
    {"device", [](Settings& to, std::string_view text) { return readValue(text, to.spi.device); }},
    {"readbits",
     [](Settings& to, std::string_view text) { return readValue(text, to.spi.readBits); }},
    {"writebits",
     [](Settings& to, std::string_view text) { return readValue(text, to.spi.writeBits); }},
    {"answer-us",
     [](Settings& to, std::string_view text) { return readValue(text, to.answerMicroseconds); }},
});

Failure runSet(Call& call) {
    for (const Setting& setting : kSettings) {
        if (setting.name != call.arguments[0]) continue;
        return setting.set(call.adapter->settings, call.arguments[1]) ? kDone : setting.failure;
    }
    return "no such setting";
}

struct Verb {
    std::string_view name;
    std::string_view usage;
    bool namesAdapter;
    std::size_t fewest;  // arguments after the adapter
    std::size_t most;
    Failure (*run)(Call& call);
};

Failure runHelp(Call& call);

constexpr auto kVerbs = std::to_array<Verb>({
    {"help", "", false, 0, 0, runHelp},
    {"list", "", false, 0, 0, runList},
    {"state", "ADAPTER", true, 0, 0, runState},
    {"count", "ADAPTER", true, 0, 0, runCount},
    {"log", "ADAPTER [FROM|clear|take]", true, 0, 1, runLog},
    {"fault", "ADAPTER KIND [VALUE...] [COUNT|always] [code=CODE] [skip=COUNT]", true, 1, 6,
     runFault},
    {"clear", "ADAPTER", true, 0, 0, runClear},
    {"xap", "ADAPTER running|stopped|failing|WORD", true, 1, 1, runXap},
    {"faulty", "ADAPTER none|FIRST LAST", true, 1, 2, runFaulty},
    {"peek", "ADAPTER ADDRESS COUNT", true, 2, 2, runPeek},
    {"poke", "ADAPTER ADDRESS WORD...", true, 2, kMostWords - 2, runPoke},
    {"plug", "ADAPTER", true, 0, 0, runPlug},
    {"unplug", "ADAPTER", true, 0, 0, runUnplug},
    {"set", "ADAPTER id|firmware|delay|mode|device|readbits|writebits|answer-us VALUE", true, 2, 2,
     runSet},
});

Failure runHelp(Call& call) {
    for (const Verb& verb : kVerbs) {
        call.out.text(verb.name).text(" ").text(verb.usage).endLine();
    }
    return kDone;
}

Failure dispatch(const Bench& bench, Arguments words, TextWriter& out) {
    for (const Verb& verb : kVerbs) {
        if (words.empty() || words[0] != verb.name) continue;
        Call call{bench, nullptr, 0, words.subspan(1), out};
        if (verb.namesAdapter) {
            std::uint64_t number = 0;
            if (call.arguments.empty() || !readNumber(call.arguments[0], kLong, number) ||
                number >= bench.adapters.size()) {
                return "no such adapter";
            }
            call.number = static_cast<std::size_t>(number);
            call.adapter = bench.adapters[call.number];
            call.arguments = call.arguments.subspan(1);
        }
        const std::size_t count = call.arguments.size();
        if (count < verb.fewest || count > verb.most) return "wrong number of arguments";
        return verb.run(call);
    }
    return "no such command";
}

}  // namespace

bool runCommand(const Bench& bench, std::string_view line, TextWriter& out) {
    std::array<std::string_view, kMostWords> words{};
    std::size_t count = 0;
    Failure failure;
    for (auto word = nextWord(line); !word.empty(); word = nextWord(line)) {
        if (count == words.size()) {
            failure = "too many words";
            break;
        }
        words[count++] = word;
    }
    if (failure.empty()) failure = dispatch(bench, Arguments(words.data(), count), out);
    if (failure.empty()) {
        out.text("ok").endLine();
    } else {
        out.text("error: ").text(failure).endLine();
    }
    return failure.empty();
}

}  // namespace quillsim
