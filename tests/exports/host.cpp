#include "tests/exports/host.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <stdexcept>

namespace wrenlink::test {
namespace {

SpiAction access(std::uint32_t type, std::uint32_t address, const Words& words) {
    SpiAction action{};
    action.type = type;
    action.u.memory.address = address;
    action.u.memory.length = static_cast<std::uint32_t>(words.size());
    action.u.memory.data = const_cast<std::uint16_t*>(words.data());
    return action;
}

std::string big(unsigned value) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%04x", value & 0xFFFF);
    return digits;
}

std::string little(unsigned value) { return big((value & 0xFF) << 8 | (value >> 8 & 0xFF)); }

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
    SpiAction action{};
    action.type = SPIFNS_SETVAR;
    action.u.variable.var = name;
    action.u.variable.value = value;
    return action;
}

Stream::Stream() {
    if (spifns_stream_init(&id_) != 0) throw std::runtime_error(lastFailure().text);
}

int Stream::run(std::vector<SpiAction> actions) const {
    return spifns_stream_sequence(id_, actions.data(), static_cast<std::uint32_t>(actions.size()));
}

DebugTexts::DebugTexts(const Stream& stream) : stream_(stream.id()) {
    spifns_stream_set_debug_callback(
        stream_,
        [](const char* text, void* self) {
            static_cast<DebugTexts*>(self)->texts_.emplace_back(text);
        },
        this);
}

std::string hex(const std::string& spaced) {
    std::string text = spaced;
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

Batch& Batch::entry(const Words& fields) {
    if (!entries_.empty()) {
        entries_ += "0000";
        requestLength_ += 2;
    }
    for (const std::uint16_t field : fields) entries_ += big(field);
    requestLength_ += 2 * static_cast<unsigned>(fields.size());
    return *this;
}

Batch& Batch::read(unsigned address, unsigned count) {
    replyLength_ += 6 + 2 * count;
    return entry({0x0100, static_cast<std::uint16_t>(address), static_cast<std::uint16_t>(count)});
}

Batch& Batch::write(unsigned address, const Words& words) {
    Words fields = {0x0200, static_cast<std::uint16_t>(address),
                    static_cast<std::uint16_t>(words.size())};
    fields.insert(fields.end(), words.begin(), words.end());
    return entry(fields);
}

Batch& Batch::bits(unsigned forWrites, unsigned value) {
    return entry(
        {0x0F00, static_cast<std::uint16_t>(forWrites), static_cast<std::uint16_t>(value)});
}

Batch::operator std::string() const {
    return little(requestLength_) + little(replyLength_) + "00" + entries_;
}

Words countingWords(std::size_t count, std::uint16_t first) {
    Words words(count);
    std::iota(words.begin(), words.end(), first);
    return words;
}

}  // namespace wrenlink::test
