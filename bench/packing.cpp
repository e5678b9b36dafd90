// Packing: sends random sequences and compares what is sent with the least that packing in order
// permits. Prints "requests SENT LEAST", "bytes SENT LEAST" and, for settings that the adapter
// already has, "settings SENT 0".
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>

#include "bench/instant_device.h"
#include "bench/stream.h"

namespace wrenlink::bench {
namespace {

constexpr unsigned kSequences = 100'000;

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
SpiAction randomAccess(std::mt19937& random, Words& words) {
    const auto below = [&random](unsigned limit) {
        return static_cast<unsigned>(random() % limit);
    };
    const unsigned limits[] = {4, 60, 600, 2000};
    const auto type = below(2) == 0 ? SpiAction::Read : SpiAction::Write;
    const unsigned address = below(0x10000);
    return access(type, address, below(limits[below(4)]), words.data());
}

Traffic sentSince(const Traffic& before) {
    return {traffic().requests - before.requests, traffic().bytes - before.bytes};
}

void print(const char* what, std::uint64_t sent, std::uint64_t least) {
    std::printf("%s %llu %llu\n", what, static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(least));
}

// 100,000 random sequences, against the least.
void compareTraffic(const Stream& stream, Words& words) {
    std::mt19937 random(20261123);
    Traffic least;
    const Traffic start = traffic();
    for (unsigned i = 0; i < kSequences; ++i) {
        Actions actions;
        LeastTraffic sequence;
        for (auto left = random() % 40; left > 0; --left) {
            actions.push_back(randomAccess(random, words));
            sequence.access(actions.back());
        }
        const Traffic traffic = sequence.end();
        least.requests += traffic.requests;
        least.bytes += traffic.bytes;
        stream.run(actions);
    }
    const Traffic sent = sentSince(start);
    print("requests", sent.requests, least.requests);
    print("bytes", sent.bytes, least.bytes);
}

// Settings that the adapter has, which should take no request.
void repeatSettings(const Stream& stream) {
    stream.set("SPICLOCK", "1000");
    const Traffic before = traffic();
    for (unsigned i = 0; i < 1000; ++i) {
        stream.set("SPICLOCK", "1000");
        stream.set("SPICMDBITS", "0");
    }
    print("settings", sentSince(before).requests, 0);
}

void run() {
    const Stream stream;
    Words words(2000);
    // From here on the adapter has its command bits.
    SpiAction first[] = {access(SpiAction::Read, 0, 1, words.data()),
                         access(SpiAction::Write, 0, 1, words.data())};
    stream.run(first);
    compareTraffic(stream, words);
    repeatSettings(stream);
}

}  // namespace
}  // namespace wrenlink::bench

int main() {
    wrenlink::bench::run();
    return 0;
}
