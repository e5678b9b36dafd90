// Text in and out without a standard stream: a writer over a caller's sink, and the splitting and
// number reading of command lines. Used where no C++ run-time library is at hand.
#ifndef WRENLINK_SIM_MODEL_TEXT_H
#define WRENLINK_SIM_MODEL_TEXT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quillsim {

// Writes text piece by piece to a sink, which takes each piece before it returns, and tells whether
// it had room for it.
class TextWriter {
   public:
    using Sink = bool (*)(void* context, std::string_view piece);

    TextWriter(Sink sink, void* context) : sink_(sink), context_(context) {}

    TextWriter& text(std::string_view piece);
    TextWriter& decimal(std::uint64_t value);
    // "0x" and at least so many digits (at most 16).
    TextWriter& hex(std::uint64_t value, unsigned digits);
    // Two digits a byte, "-" for none.
    TextWriter& bytes(std::span<const std::uint8_t> bytes);
    // "name=value", with a space before it unless the line has only begun.
    TextWriter& field(std::string_view name);
    TextWriter& endLine();
    // Whether the sink had room for all so far.
    bool isWhole() const { return isWhole_; }

   private:
    Sink sink_;
    void* context_;
    bool isWhole_ = true;
    bool lineBegun_ = false;
};

// Cuts the next word, ended by spaces, off the front of a line; empty at its end.
std::string_view nextWord(std::string_view& line);

// Reads a whole text as a number, decimal or hexadecimal after "0x"; false when it is none or lies
// above highest.
bool readNumber(std::string_view text, std::uint64_t highest, std::uint64_t& value);

// Reads "major.minor" into a firmware version.
bool readFirmware(std::string_view text, std::uint16_t& version);

}  // namespace quillsim

#endif
