// Packing: sends random sequences and compares what is sent with the least that packing in order
// permits. Prints "requests SENT LEAST", "bytes SENT LEAST" and, for settings that the adapter
// already has, "settings SENT 0".
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench/instant_device.h"
#include "wrenlink/spifns.h"

namespace {

using wrenlink::bench::Traffic;
using wrenlink::bench::traffic;

constexpr unsigned kSequences = 100'000;

void require(int status) {
    if (status == 0) return;
    const char* text = nullptr;
    const int code = spifns_get_last_error(nullptr, &text);
    std::fprintf(stderr, "error %d: %s\n", code, text);
    std::exit(1);
}

void set(std::uint32_t stream, const char* name, const char* value) {
    SpiAction action{};
    action.type = SpiAction::SetVar;
    action.u.variable = {name, value, nullptr};
    require(spifns_stream_sequence(stream, &action, 1));
}

// The least traffic for accesses in this order: each exchange takes as many pieces as fit it.
class LeastTraffic {
   public:
    void access(const SpiAction& action) {
        const bool isRead = action.type == SpiAction::Read;
        const unsigned longest = isRead ? 505 : 504;
        for (unsigned left = action.u.memory.length; left > 0; left -= std::min(left, longest)) {
            const unsigned words = std::min(left, longest);
            piece(isRead ? 6 : 6 + 2 * words, isRead ? 6 + 2 * words : 0);
        }
    }
    Traffic end() {
        if (request_ > kHeader) send();
        return total_;
    }

   private:
    static constexpr unsigned kHeader = 1;
    static constexpr unsigned kMost = 1016;

    void piece(unsigned request, unsigned reply) {
        const unsigned gap = request_ > kHeader ? 2 : 0;
        if (request_ + gap + request > kMost || reply_ + reply > kMost) {
            send();
            return piece(request, reply);
        }
        request_ += gap + request;
        reply_ += reply;
    }
    void send() {
        ++total_.requests;
        total_.bytes += 4 + request_;
        request_ = kHeader;
        reply_ = 0;
    }

    unsigned request_ = kHeader;
    unsigned reply_ = 0;
    Traffic total_;
};

// Mostly short accesses, some of several exchanges.
SpiAction randomAccess(std::mt19937& random, std::vector<std::uint16_t>& words) {
    const auto below = [&random](unsigned limit) {
        return static_cast<unsigned>(random() % limit);
    };
    const unsigned limits[] = {4, 60, 600, 2000};
    SpiAction action{};
    action.type = below(2) == 0 ? SpiAction::Read : SpiAction::Write;
    action.u.memory.address = below(0x10000);
    action.u.memory.length = below(limits[below(4)]);
    action.u.memory.data = words.data();
    return action;
}

Traffic sentSince(const Traffic& before) {
    return {traffic().requests - before.requests, traffic().bytes - before.bytes};
}

void print(const char* what, std::uint64_t sent, std::uint64_t least) {
    std::printf("%s %llu %llu\n", what, static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(least));
}

}  // namespace

int main() {
    std::uint32_t stream = SPIFNS_NO_STREAM;
    require(spifns_stream_init(&stream));
    set(stream, "SPIPORT", "0");
    std::vector<std::uint16_t> words(2000);

    // From here on the adapter has its command bits.
    SpiAction first[2] = {};
    first[1].type = SpiAction::Write;
    for (SpiAction& action : first) {
        action.u.memory.length = 1;
        action.u.memory.data = words.data();
    }
    require(spifns_stream_sequence(stream, first, 2));

    std::mt19937 random(20261123);
    Traffic least;
    const Traffic start = traffic();
    for (unsigned i = 0; i < kSequences; ++i) {
        std::vector<SpiAction> actions;
        LeastTraffic sequence;
        for (auto left = random() % 40; left > 0; --left) {
            actions.push_back(randomAccess(random, words));
            sequence.access(actions.back());
        }
        const Traffic traffic = sequence.end();
        least.requests += traffic.requests;
        least.bytes += traffic.bytes;
        require(spifns_stream_sequence(stream, actions.data(),
                                       static_cast<std::uint32_t>(actions.size())));
    }
    const Traffic sent = sentSince(start);
    print("requests", sent.requests, least.requests);
    print("bytes", sent.bytes, least.bytes);

    set(stream, "SPICLOCK", "1000");
    const Traffic before = traffic();
    for (unsigned i = 0; i < 1000; ++i) {
        set(stream, "SPICLOCK", "1000");
        set(stream, "SPICMDBITS", "0");
        require(spifns_stream_sequence(stream, first, 0));
    }
    print("settings", sentSince(before).requests, 0);
    spifns_stream_close(stream);
    return 0;
}
