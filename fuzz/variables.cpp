// Names and values of variables: values are read as the C library reads them, reach the adapter,
// and can be read back; a name that is none does nothing.
#include <strings.h>

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

// What a stream holds.
struct Held {
    std::uint32_t device = 0;
    std::uint16_t readBits = 0;
    std::uint16_t writeBits = 0;
    std::string maxClock = "1070";
};

class Variables {
   public:
    explicit Variables(quillsim::Adapter& adapter) : adapter_(adapter) {}

    // Takes note of a setting and returns its failure.
    Failure set(const std::string& name, const std::string& value);
    // Compares what the adapter has after it.
    void checkAdapter(const std::string& name, const std::string& value) const;
    std::string get(const std::string& name) const;

   private:
    static bool is(const std::string& name, const char* variable) {
        return strcasecmp(name.c_str(), variable) == 0;
    }
    unsigned clockDelay(double clock) const;

    quillsim::Adapter& adapter_;
    Held held_;
};

Failure Variables::set(const std::string& name, const std::string& value) {
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
        held_.device = number < 0 ? 0 : static_cast<std::uint32_t>(number);
    } else if (is(name, "SPIMAXCLOCK")) {
        const double clock = std::strtod(value.c_str(), nullptr);
        held_.maxClock = std::to_string(clock > 1 ? clock : 1).substr(0, 19);
    }
    if (is(name, "SPICMDBITS") || is(name, "SPICMDREADBITS")) held_.readBits = bits;
    if (is(name, "SPICMDBITS") || is(name, "SPICMDWRITEBITS")) held_.writeBits = bits;
    return {};
}

// The delay for a clock that has one.
unsigned Variables::clockDelay(double clock) const {
    auto delay = static_cast<std::uint16_t>(static_cast<std::int32_t>(7936.5 / clock - 2.9444));
    while (clockOf(delay) > std::strtod(held_.maxClock.c_str(), nullptr)) ++delay;
    return delay;
}

void Variables::checkAdapter(const std::string& name, const std::string& value) const {
    constexpr unsigned kUnknown = 0xFFFF;  // not sent while the delay is unknown
    const quillsim::RequestContext& spi = adapter_.settings.spi;
    if (is(name, "QUILLMODE")) {
        require(spi.mode == (is(value, "JTAG") ? 1 : 0), "the adapter has the mode");
    } else if (is(name, "SPIMUL")) {
        require(spi.device == held_.device, "the adapter has the device");
    } else if (is(name, "SPI_DELAY")) {
        const auto delay = static_cast<std::uint16_t>(test::readSigned(value.c_str()));
        require(spi.delay == delay || delay == kUnknown, "the adapter has the delay");
    } else if (is(name, "SPICLOCK")) {
        const double clock = std::strtod(value.c_str(), nullptr);
        const bool plain = clock > 1e-5 && clock < 2000;
        const unsigned delay = plain ? clockDelay(clock) : 0;
        require(plain ? spi.delay == delay || delay == kUnknown : clock < 2000 || spi.delay == 0,
                "the adapter has the clock");
        require(
            !(clock < 2000) || clockOf(spi.delay) <= std::strtod(held_.maxClock.c_str(), nullptr),
            "a clock is within its limit");
    }
}

std::string Variables::get(const std::string& name) const {
    const unsigned delay = adapter_.settings.spi.delay;
    if (is(name, "SPIPORT")) return "0";
    if (is(name, "SPI_DELAY")) return std::to_string(delay);
    if (is(name, "SPICLOCK")) return std::to_string(clockOf(delay));
    if (is(name, "SPIMUL")) return std::to_string(held_.device);
    if (is(name, "SPIMAXCLOCK")) return held_.maxClock;
    if (is(name, "QUILLVERSION")) return "0109";
    if (is(name, "MUTEXNAME")) return "usbspi_mutex_0";
    if (is(name, "SPICMDREADBITS")) return hexadecimal(held_.readBits);
    if (is(name, "SPICMDWRITEBITS")) return hexadecimal(held_.writeBits);
    if (!is(name, "SPICMDBITS")) return "";
    return held_.readBits == held_.writeBits ? hexadecimal(held_.readBits) : "MISMATCH";
}

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
    Variables variables(wire.adapter());
    while (input.remaining_bytes() > 0) step(stream, variables, input);
    require(wire.allGood(), "every frame is well formed");
}

}  // namespace wrenlink::fuzz
