// Replies of an adapter that may do anything: what the host is told is what the bytes say.
#include <cerrno>
#include <cstring>
#include <optional>

#include "fuzz/harness.h"

namespace wrenlink::fuzz {
namespace {

using test::Exchange;
using test::Words;

constexpr std::uint16_t kSentinel = 0x5A5A;
constexpr std::size_t kLongestReply = 1100;

class LyingWire : public Wire {
   public:
    explicit LyingWire(FuzzedDataProvider& input) : input_(input) {}

    Ending end(const Bytes& frame, Bytes& reply) override {
        const Ending ending = lie(reply);
        exchanges_.push_back({frame, ending == Ending::completed ? reply : Bytes(), {}});
        if (ending != Ending::completed)
            exchanges_.back().failure = {
                516, 0,
                ending == Ending::silent
                    ? std::strerror(EINPROGRESS) + std::string(": Driver IO timed out")
                    : std::strerror(EIO) + std::string(": Driver IO failed")};
        return ending;
    }
    std::vector<Exchange> take() { return std::exchange(exchanges_, {}); }

   private:
    Ending lie(Bytes& reply) {
        switch (input_.ConsumeIntegralInRange(0, 7)) {
            case 1:
                reply = input_.ConsumeBytes<std::uint8_t>(
                    input_.ConsumeIntegralInRange<std::size_t>(0, kLongestReply));
                break;
            case 2:
                reply.resize(input_.ConsumeIntegralInRange<std::size_t>(0, kLongestReply));
                break;
            case 3:
            case 4:
                if (!reply.empty())
                    reply[input_.ConsumeIntegralInRange<std::size_t>(0, reply.size() - 1)] ^=
                        input_.ConsumeIntegral<std::uint8_t>();
                break;
            case 5:
                return Ending::failed;
            case 6:
                return Ending::silent;
            case 7:
                return Ending::notStarted;
            default:
                break;
        }
        return Ending::completed;
    }

    FuzzedDataProvider& input_;
    std::vector<Exchange> exchanges_;
};

// What a call showed.
struct Seen {
    std::optional<int> status = std::nullopt;
    std::vector<int> words = {};
    const char* appended = "";  // to a failed setting of the delay
};

Seen accesses(const test::Stream& stream, FuzzedDataProvider& input) {
    std::vector<Words> buffers(input.ConsumeIntegralInRange<std::size_t>(1, 4));
    std::vector<bool> reads(buffers.size());
    std::vector<SpiAction> actions;
    for (std::size_t i = 0; i < buffers.size(); ++i) {
        buffers[i].assign(input.ConsumeIntegralInRange<std::size_t>(0, 600), kSentinel);
        const auto address = input.ConsumeIntegral<std::uint16_t>();
        reads[i] = input.ConsumeBool();
        actions.push_back(reads[i] ? test::readInto(address, buffers[i])
                                   : test::writeFrom(address, buffers[i]));
    }
    Seen seen = {stream.run(actions)};
    for (std::size_t i = 0; i < buffers.size(); ++i)
        if (reads[i]) seen.words.insert(seen.words.end(), buffers[i].begin(), buffers[i].end());
    return seen;
}

Seen mgcmd(const test::Stream& stream, FuzzedDataProvider& input) {
    Words words(input.ConsumeIntegralInRange<std::uint16_t>(0, 508), kSentinel);
    const int status = spifns_stream_mgcmd_cmd(stream.id(), words.data(),
                                               static_cast<std::uint16_t>(words.size()), 1);
    return {status, {words.begin(), words.end()}};
}

Seen setting(const test::Stream& stream, FuzzedDataProvider& input, const char* name,
             unsigned highest) {
    const std::string value = std::to_string(input.ConsumeIntegralInRange(0U, highest));
    return {stream.set(name, value.c_str())};
}

Seen call(const test::Stream& stream, FuzzedDataProvider& input) {
    switch (input.ConsumeIntegralInRange(0, 11)) {
        case 0:
            stream.set("SPIPORT", "100");
            return {{}, {std::stoi(stream.get("QUILLVERSION"), nullptr, 16)}};
        case 1:
            return setting(stream, input, "SPI_DELAY", 0xFFFF);
        case 2:
            return setting(stream, input, "SPIMUL", 16);
        case 3:
            return setting(stream, input, "SPICMDBITS", 3);
        case 4:
            return {stream.set("QUILLMODE", "JTAG")};
        case 5:
            return {{}, {std::stoi(stream.get("SPI_DELAY"))}};
        case 6:
            return {spifns_stream_mgcmd_init(stream.id(), 1, 2)};
        case 7:
            return mgcmd(stream, input);
        case 8:
            return {{}, {spifns_stream_marigold_xap_stopped(stream.id())}};
        case 9:
            stream.ask("!DFU");
            return {};
        case 10:
            stream.ask("!SPISLOWER");
            return {{}, {}, ": Unable to slow down SPI"};
        default:
            return accesses(stream, input);
    }
}

// A call that made no exchange was answered from a cache, or refused.
void check(const Seen& seen, const std::vector<Exchange>& exchanges) {
    if (exchanges.empty()) return;
    test::Told told = test::tell(exchanges);
    const Exchange& last = exchanges.back();
    if (last.failure.code != 0 && last.code() == 0x0300) told.failure.text += seen.appended;
    require(test::lastFailure() == told.failure, "the error is the exchange's");
    require(!seen.status || seen.status == (told.failure.code == 0 ? 0 : 1),
            "the status tells of the error");
    require(seen.words.empty() || told.agreesWith(seen.words, kSentinel),
            "the host has the words of the reply");
}

}  // namespace

void run(FuzzedDataProvider& input) {
    LyingWire wire(input);
    const test::Stream stream;
    stream.set("SPIPORT", "0");
    const test::DebugTexts texts(stream);
    for (int i = 0; i < 24 && input.remaining_bytes() > 0; ++i) {
        spifns_clear_last_error();
        wire.take();
        const Seen seen = call(stream, input);
        check(seen, wire.take());
    }
}

}  // namespace wrenlink::fuzz
