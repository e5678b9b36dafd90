#include "sim/model/text.h"

#include <array>

namespace quillsim {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

int digitValue(char character) {
    if (character >= '0' && character <= '9') return character - '0';
    if (character >= 'a' && character <= 'f') return character - 'a' + 10;
    if (character >= 'A' && character <= 'F') return character - 'A' + 10;
    return 16;
}

}  // namespace

TextWriter& TextWriter::text(std::string_view piece) {
    if (!piece.empty()) {
        if (!sink_(context_, piece)) isWhole_ = false;
        lineBegun_ = true;
    }
    return *this;
}

TextWriter& TextWriter::decimal(std::uint64_t value) {
    std::array<char, 20> buffer{};
    std::size_t at = buffer.size();
    do {
        buffer[--at] = kDigits[value % 10];
        value /= 10;
    } while (value != 0);
    return text({buffer.data() + at, buffer.size() - at});
}

TextWriter& TextWriter::hex(std::uint64_t value, unsigned digits) {
    std::array<char, 16> buffer{};
    std::size_t at = buffer.size();
    while (value != 0 || buffer.size() - at < digits) {
        buffer[--at] = kDigits[value & 15];
        value >>= 4;
    }
    return text("0x").text({buffer.data() + at, buffer.size() - at});
}

TextWriter& TextWriter::bytes(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) return text("-");
    for (const std::uint8_t byte : bytes) {
        const std::array<char, 2> pair{kDigits[byte >> 4], kDigits[byte & 15]};
        text({pair.data(), pair.size()});
    }
    return *this;
}

TextWriter& TextWriter::field(std::string_view name) {
    if (lineBegun_) text(" ");
    return text(name).text("=");
}

TextWriter& TextWriter::endLine() {
    text("\n");
    lineBegun_ = false;
    return *this;
}

std::string_view nextWord(std::string_view& line) {
    while (!line.empty() && line.front() == ' ') line.remove_prefix(1);
    std::size_t length = 0;
    while (length < line.size() && line[length] != ' ') ++length;
    const std::string_view word(line.data(), length);
    line.remove_prefix(length);
    return word;
}

bool readNumber(std::string_view text, std::uint64_t highest, std::uint64_t& value) {
    unsigned base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty()) return false;
    std::uint64_t sum = 0;
    for (const char character : text) {
        const auto digit = static_cast<unsigned>(digitValue(character));
        if (digit >= base || digit > highest || sum > (highest - digit) / base) return false;
        sum = sum * base + digit;
    }
    value = sum;
    return true;
}

bool readFirmware(std::string_view text, std::uint16_t& version) {
    std::size_t dot = 0;
    while (dot < text.size() && text[dot] != '.') ++dot;
    if (dot == text.size()) return false;
    const std::string_view major(text.data(), dot);
    const std::string_view minor(text.data() + dot + 1, text.size() - dot - 1);
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    if (!readNumber(major, 0xFF, high) || !readNumber(minor, 0xFF, low)) return false;
    version = static_cast<std::uint16_t>(high << 8 | low);
    return true;
}

}  // namespace quillsim
