// Packing: sends random sequences and compares what is sent with the least that packing in order
// permits. Prints "requests SENT LEAST", "bytes SENT LEAST" and, for settings that the adapter
// already has, "settings SENT 0".
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <random>

#include "bench/instant_device.h"
#include "bench/stream.h"

namespace wrenlink::bench {
namespace {

constexpr unsigned kSequences = 100'000;

// What settings of the command bits are called, and whether they are for reads, for writes, or
// both.
constexpr struct {
    const char* name;
    bool isFor[2];
} kSettings[] = {{"SPICMDREADBITS", {true, false}},
                 {"SPICMDWRITEBITS", {false, true}},
                 {"SPICMDBITS", {true, true}}};
constexpr const char* kBits[] = {"0", "1", "2"};

// The least traffic for sequences in this order: each exchange takes as many pieces as fit it, and
// an access is preceded by its command bits only when the adapter has others.
class LeastTraffic {
   public:
    void set(unsigned setting, unsigned bits) {
        for (const unsigned way : {0, 1})
            if (kSettings[setting].isFor[way]) wanted_[way] = bits;
    }
    void access(const SpiAction& action) {
        const bool isRead = action.type == SpiAction::Read;
        const unsigned way = isRead ? 0 : 1;
        if (wanted_[way] != adapters_[way]) piece(6, 0);
        adapters_[way] = wanted_[way];
        const unsigned longest = isRead ? 505 : 504;
        for (unsigned left = action.u.memory.length; left > 0; left -= std::min(left, longest)) {
            const unsigned words = std::min(left, longest);
            piece(isRead ? 6 : 6 + 2 * words, isRead ? 6 + 2 * words : 0);
        }
    }
    void endSequence() {
        if (request_ > kHeader) send();
    }
    const Traffic& total() const { return total_; }

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
    unsigned wanted_[2] = {0, 0};
    unsigned adapters_[2] = {0, 0};
    Traffic total_;
};

unsigned below(std::mt19937& random, unsigned limit) {
    return static_cast<unsigned>(random() % limit);
}

// Mostly short accesses, some of several exchanges, and settings between them.
SpiAction randomAction(std::mt19937& random, Words& words, LeastTraffic& least) {
    if (below(random, 8) == 0) {
        const unsigned setting = below(random, std::size(kSettings));
        const unsigned bits = below(random, std::size(kBits));
        least.set(setting, bits);
        SpiAction action{};
        action.type = SpiAction::SetVar;
        action.u.variable = {kSettings[setting].name, kBits[bits], nullptr};
        return action;
    }
    const unsigned limits[] = {4, 60, 600, 2000};
    const auto type = below(random, 2) == 0 ? SpiAction::Read : SpiAction::Write;
    const unsigned address = below(random, 0x10000);
    const unsigned count = below(random, limits[below(random, std::size(limits))]);
    const SpiAction action = access(type, address, count, words.data());
    least.access(action);
    return action;
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
    LeastTraffic least;
    const Traffic start = traffic();
    for (unsigned i = 0; i < kSequences; ++i) {
        Actions actions;
        for (auto left = random() % 40; left > 0; --left)
            actions.push_back(randomAction(random, words, least));
        least.endSequence();
        stream.run(actions);
    }
    const Traffic sent = sentSince(start);
    print("requests", sent.requests, least.total().requests);
    print("bytes", sent.bytes, least.total().bytes);
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
    // From here on the adapter has its command bits, 0.
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
