// Names and values of variables: values are read as the C library reads them, reach the adapter,
// and can be read back; a name that is none does nothing.
#include <strings.h>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "fuzz/harness.h"
#include "quill/number_text.h"
#include "tests/support/c_numbers.h"

namespace wrenlink::fuzz {
namespace {

using test::Failure;

constexpr const char* kNames[] = {"SPIPORT",   "QUILLMODE",  "SPI_DELAY",      "SPICLOCK",
                                  "SPIMUL",    "SPICMDBITS", "SPIMAXCLOCK",    "QUILLVERSION",
                                  "MUTEXNAME", "SPICMDBITS", "SPICMDREADBITS", "SPICMDWRITEBITS"};
constexpr std::size_t kLongestName = 300;
constexpr std::size_t kLongestValue = 1200;

std::string hexadecimal(unsigned number) {
    return (std::ostringstream() << "0x" << std::hex << number).str();
}

double clockOf(unsigned delay) { return delay == 0 ? 4000 : 1000000.0 / (126 * delay + 434); }

bool is(const std::string& name, const char* variable) {
    return strcasecmp(name.c_str(), variable) == 0;
}

// What a stream and its adapter hold.
class Variables {
   public:
    explicit Variables(const quillsim::RequestContext& adapter) : adapter_(adapter) {}

    // Takes note of a setting and returns its failure.
    Failure set(const std::string& name, const std::string& value) {
        const std::int32_t number = test::readSigned(value.c_str());
        const auto bits = static_cast<std::uint16_t>(number);
        if (is(name, "SPIPORT")) {
            char* end = nullptr;
            const std::uint32_t key = test::readUnsigned(value.c_str(), &end);
            if (*end == '\0' && key != 0 && key != 100)
                return {514, 0, ("Couldn't find device with id (" + value + ")").substr(0, 1023)};
        } else if (is(name, "SPIMUL")) {
            if (number < -1 || number > 16)
                return {1, 0, "SPIMUL is out of range (valid value: 0 - 16)"};
            device_ = std::max(number, 0);
        } else if (is(name, "SPIMAXCLOCK")) {
            const double clock = std::strtod(value.c_str(), nullptr);
            maxClock_ = std::to_string(clock > 1 ? clock : 1).substr(0, 19);
        }
        if (is(name, "SPICMDBITS") || is(name, "SPICMDREADBITS")) readBits_ = bits;
        if (is(name, "SPICMDBITS") || is(name, "SPICMDWRITEBITS")) writeBits_ = bits;
        return {};
    }

    // Compares what the adapter has after it.
    void checkAdapter(const std::string& name, const std::string& value) const {
        constexpr unsigned kUnknown = 0xFFFF;  // not sent while the delay is unknown
        if (is(name, "QUILLMODE")) {
            require(adapter_.mode == (is(value, "JTAG") ? 1 : 0), "the adapter has the mode");
        } else if (is(name, "SPIMUL")) {
            require(adapter_.device == device_, "the adapter has the device");
        } else if (is(name, "SPI_DELAY")) {
            const auto delay = static_cast<std::uint16_t>(test::readSigned(value.c_str()));
            require(adapter_.delay == delay || delay == kUnknown, "the adapter has the delay");
        } else if (is(name, "SPICLOCK")) {
            const double clock = std::strtod(value.c_str(), nullptr);
            const bool plain = clock > 1e-5 && clock < 2000;
            const unsigned delay = plain ? clockDelay(clock) : 0;
            require(plain ? adapter_.delay == delay || delay == kUnknown
                          : clock < 2000 || adapter_.delay == 0,
                    "the adapter has the clock");
            require(!(clock < 2000) || clockOf(adapter_.delay) <= maxClock(),
                    "a clock is within its limit");
        }
    }

    std::string get(const std::string& name) const {
        if (is(name, "SPIPORT")) return "0";
        if (is(name, "SPI_DELAY")) return std::to_string(adapter_.delay);
        if (is(name, "SPICLOCK")) return std::to_string(clockOf(adapter_.delay));
        if (is(name, "SPIMUL")) return std::to_string(device_);
        if (is(name, "SPIMAXCLOCK")) return maxClock_;
        if (is(name, "QUILLVERSION")) return "0109";
        if (is(name, "MUTEXNAME")) return "usbspi_mutex_0";
        if (is(name, "SPICMDREADBITS")) return hexadecimal(readBits_);
        if (is(name, "SPICMDWRITEBITS")) return hexadecimal(writeBits_);
        if (!is(name, "SPICMDBITS")) return "";
        return readBits_ == writeBits_ ? hexadecimal(readBits_) : "MISMATCH";
    }

   private:
    double maxClock() const { return std::strtod(maxClock_.c_str(), nullptr); }
    // The delay for a clock that has one.
    unsigned clockDelay(double clock) const {
        auto delay = static_cast<std::uint16_t>(static_cast<std::int32_t>(7936.5 / clock - 2.9444));
        while (clockOf(delay) > maxClock()) ++delay;
        return delay;
    }

    const quillsim::RequestContext& adapter_;
    std::int32_t device_ = 0;
    std::uint16_t readBits_ = 0;
    std::uint16_t writeBits_ = 0;
    std::string maxClock_ = "1070";
};

// A name that a variable has, in any case, or one that it may have.
std::string nameFrom(FuzzedDataProvider& input) {
    if (input.ConsumeIntegralInRange(0, 7) == 0) return textFrom(input, kLongestName);
    std::string name = input.PickValueInArray(kNames);
    if (input.ConsumeBool()) name[input.ConsumeIntegralInRange<std::size_t>(0, 6)] ^= 0x20;
    return name;
}

void checkNumbers(const std::string& text) {
    char* end = nullptr;
    const std::uint32_t number = test::readUnsigned(text.c_str(), &end);
    const ParsedUnsigned parsed = parseUnsigned(text.c_str());
    require(parsed.value == number && parsed.end == end, "as strtoul");
    require(parseSigned(text.c_str()) == test::readSigned(text.c_str()), "as strtol");
    const double real = std::strtod(text.c_str(), nullptr);
    const double parsedReal = parseDouble(text.c_str());
    require(parsedReal == real || (std::isnan(parsedReal) && std::isnan(real)), "as strtod");
}

void step(const test::Stream& stream, Variables& variables, FuzzedDataProvider& input) {
    const std::string name = nameFrom(input);
    if (input.ConsumeBool()) {
        require(stream.get(name.c_str()) == variables.get(name), "a variable reads as it was set");
        return;
    }
    const std::string value = textFrom(input, kLongestValue);
    checkNumbers(value);
    const Failure expected = variables.set(name, value);
    const int status = stream.set(name.c_str(), value.c_str());
    require(test::outcome(status) == expected, "a setting ends as it should");
    if (status == 0) variables.checkAdapter(name, value);
}

}  // namespace

void run(FuzzedDataProvider& input) {
    Wire wire;
    const test::Stream stream("0");
    const test::DebugTexts texts(stream);
    Variables variables(wire.adapter().settings.spi);
    while (input.remaining_bytes() > 0) step(stream, variables, input);
    require(wire.allGood(), "every frame is well formed");
}

}  // namespace wrenlink::fuzz
