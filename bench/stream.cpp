#include "bench/stream.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace wrenlink::bench {

void require(int status) {
    if (status == 0) return;
    const char* text = nullptr;
    const int code = spifns_get_last_error(nullptr, &text);
    std::fprintf(stderr, "error %d: %s\n", code, text);
    std::exit(1);
}

SpiAction access(std::uint32_t type, std::uint32_t address, std::size_t count,
                 std::uint16_t* words) {
    SpiAction action{};
    action.type = type;
    action.u.memory.address = address;
    action.u.memory.length = static_cast<std::uint32_t>(count);
    action.u.memory.data = words;
    return action;
}

Actions accessesToAll(std::uint32_t type, Words& words) {
    constexpr std::size_t kLongest = 0xFFFF;
    Actions actions;
    for (std::size_t start = 0; start < words.size(); start += kLongest)
        actions.push_back(access(type, static_cast<std::uint32_t>(start),
                                 std::min(words.size() - start, kLongest), &words[start]));
    return actions;
}

Stream::Stream(unsigned port) {
    require(spifns_stream_init(&id_));
    set("SPIPORT", std::to_string(port).c_str());
}

void Stream::set(const char* name, const char* value) const {
    SpiAction action{};
    action.type = SpiAction::SetVar;
    action.u.variable = {name, value, nullptr};
    run({&action, 1});
}

void Stream::run(std::span<SpiAction> actions) const {
    require(
        spifns_stream_sequence(id_, actions.data(), static_cast<std::uint32_t>(actions.size())));
}

}  // namespace wrenlink::bench
