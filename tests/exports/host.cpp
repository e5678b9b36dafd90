#include "tests/exports/host.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <list>
#include <numeric>
#include <sstream>
#include <stdexcept>

namespace wrenlink::test {
namespace {

SpiAction access(std::uint32_t type, std::uint32_t address, const Words& words) {
    const auto length = static_cast<std::uint32_t>(words.size());
    return {type, 0, {.memory = {0, address, length, 0, const_cast<std::uint16_t*>(words.data())}}};
}

std::string big(unsigned value) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%04x", value & 0xFFFF);
    return digits;
}

std::string little(unsigned value) { return big((value & 0xFF) << 8 | (value >> 8 & 0xFF)); }

// What "r10:2" or "R=40" says.
struct Part {
    explicit Part(const std::string& text) {
        std::istringstream in(text);
        in >> kind;
        if (in.peek() == '=') in.ignore();
        in >> std::hex >> first;
        in.ignore();
        in >> std::dec >> count;
    }

    char kind = 0;
    unsigned first = 0;  // an address, or command bits
    unsigned count = 0;
};

std::uint32_t typeOf(const Part& part) {
    if (part.kind == 'r') return SPIFNS_READ;
    return part.kind == 'w' ? std::uint32_t{SPIFNS_WRITE} : 7;
}

std::string entryOf(const Part& part) {
    if (part.kind == 'R') return "0f000000" + big(part.first);
    if (part.kind == 'W') return "0f000001" + big(part.first);
    std::string entry = (part.kind == 'w' ? "0200" : "0100") + big(part.first) + big(part.count);
    if (part.kind == 'w')
        for (const std::uint16_t word : wordsAt(part.first, part.count)) entry += big(word);
    return entry;
}

std::string frameOf(std::string text) {
    if (text[0] <= '9') {
        std::erase(text, ' ');
        return text;
    }
    std::string entries;
    unsigned replyLength = 0;
    for (const std::string& word : split(text)) {
        const Part part(word);
        entries += (entries.empty() ? "" : "0000") + entryOf(part);
        if (part.kind == 'r') replyLength += 6 + 2 * part.count;
    }
    const auto requestLength = static_cast<unsigned>(1 + entries.size() / 2);
    return little(requestLength) + little(replyLength) + "00" + entries;
}

}  // namespace

Failure lastFailure() {
    Failure failure;
    const char* text = nullptr;
    failure.code = spifns_get_last_error32(&failure.address, &text);
    failure.text = text;
    return failure;
}

Failure outcome(int status) {
    if (status == 0) return {};
    if (status == 1) return lastFailure();
    return {-1, 0, "impossible status " + std::to_string(status)};
}

SpiAction readInto(std::uint32_t address, Words& words) {
    return access(SPIFNS_READ, address, words);
}

SpiAction writeFrom(std::uint32_t address, const Words& words) {
    return access(SPIFNS_WRITE, address, words);
}

SpiAction setting(const char* name, const char* value) {
    return {SPIFNS_SETVAR, 0, {.variable = {name, value, nullptr}}};
}

Stream::Stream() {
    if (spifns_stream_init(&id_) != 0) throw std::runtime_error(lastFailure().text);
}

int Stream::run(std::vector<SpiAction> actions) const {
    return spifns_stream_sequence(id_, actions.data(), static_cast<std::uint32_t>(actions.size()));
}

int Stream::run(const std::string& steps) const {
    std::list<std::string> names;
    std::list<Words> buffers;
    std::vector<SpiAction> actions;
    for (const std::string& step : split(steps)) {
        const std::size_t equals = step.find('=');
        if (equals != std::string::npos) {
            const char* const name = names.emplace_back(step.substr(0, equals)).c_str();
            actions.push_back(setting(name, names.emplace_back(step.substr(equals + 1)).c_str()));
            continue;
        }
        const Part part(step);
        const Words& words = buffers.emplace_back(wordsAt(part.first, part.count));
        actions.push_back(access(typeOf(part), part.first, words));
    }
    return run(std::move(actions));
}

std::string Stream::ask(const std::string& request) const {
    const char* const name = request.c_str() + 1;
    std::uint16_t word = 1;
    if (request[0] == '?') return get(name);
    if (request == "XAP") return std::to_string(spifns_stream_marigold_xap_stopped(id_));
    if (request == "MGCMD start") return std::to_string(spifns_stream_mgcmd_init(id_, 1, 2));
    if (request == "MGCMD") return std::to_string(spifns_stream_mgcmd_cmd(id_, &word, 1, 1));
    if (request[0] != '!') return std::to_string(run(request));
    const char* const answer = spifns_stream_command(id_, name);
    return answer == nullptr ? "" : answer;
}

DebugTexts::DebugTexts(const Stream& stream) : stream_(stream.id()) {
    spifns_stream_set_debug_callback(
        stream_,
        [](const char* text, void* self) {
            static_cast<DebugTexts*>(self)->texts_.emplace_back(text);
        },
        this);
}

Frames frames(const std::string& text) {
    Frames all;
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t end = std::min(text.find(" | ", from), text.size());
        all.push_back(frameOf(text.substr(from, end - from)));
        from = end + 3;
    }
    return all;
}

std::vector<std::string> split(const std::string& text) {
    std::istringstream parts(text);
    return {std::istream_iterator<std::string>(parts), {}};
}

Words countingWords(std::size_t count, std::uint16_t first) {
    Words words(count);
    std::iota(words.begin(), words.end(), first);
    return words;
}

Words wordsAt(std::uint32_t address, std::size_t count) {
    return countingWords(count, static_cast<std::uint16_t>(0x1000 + address));
}

}  // namespace wrenlink::test
