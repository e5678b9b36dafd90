// What a host does, in few words: streams, actions, and the frames that they should make.
#ifndef WRENLINK_TESTS_EXPORTS_HOST_H
#define WRENLINK_TESTS_EXPORTS_HOST_H

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "wrenlink/spifns.h"

namespace wrenlink::test {

using Words = std::vector<std::uint16_t>;
using Frames = std::vector<std::string>;

// The calling thread's last error.
struct Failure {
    int code = 0;
    std::uint32_t address = 0;
    std::string text;

    friend bool operator==(const Failure&, const Failure&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Failure& failure) {
        return out << failure.code << " at " << failure.address << ": " << failure.text;
    }
};
Failure lastFailure();
// What a call that returned this status tells: nothing after a 0, the last error after a 1.
Failure outcome(int status);

SpiAction readInto(std::uint32_t address, Words& words);
SpiAction writeFrom(std::uint32_t address, const Words& words);
SpiAction setting(const char* name, const char* value);

// An open stream; closing it clears the last error.
class Stream {
   public:
    // With no adapter selected.
    Stream();
    explicit Stream(const char* port) : Stream() { set("SPIPORT", port); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { spifns_stream_close(id_); }

    std::uint32_t id() const { return id_; }
    int run(std::vector<SpiAction> actions) const;
    // Steps in a text: "r10:2" reads two words from address 0x10 on, "w10:2" writes two, and
    // "?10:2" has a type that is none, "SPIMUL=3" sets a variable. What is read is dropped; what is
    // written is wordsAt().
    int run(const std::string& steps) const;
    int set(const char* name, const char* value) const { return run({setting(name, value)}); }
    std::string get(const char* name) const { return spifns_stream_getvar(id_, name); }
    int read(std::uint32_t address, Words& words) const { return run({readInto(address, words)}); }
    // What a call returns, as a text: "?NAME" gets a variable, "!NAME" gives a command, "XAP" asks
    // for the state, "MGCMD start" and "MGCMD" exchange 1 and 2, or a 1; others are steps as above.
    std::string ask(const std::string& request) const;

   private:
    std::uint32_t id_ = SPIFNS_NO_STREAM;
};

// Collects a stream's debug texts while it lives.
class DebugTexts {
   public:
    explicit DebugTexts(const Stream& stream);
    DebugTexts(const DebugTexts&) = delete;
    DebugTexts& operator=(const DebugTexts&) = delete;
    ~DebugTexts() { spifns_stream_set_debug_callback(stream_, nullptr, nullptr); }

    std::vector<std::string> take() { return std::exchange(texts_, {}); }

   private:
    std::uint32_t stream_;
    std::vector<std::string> texts_;
};

// Frames, as the simulator logs them, from a text that has " | " between two of them. Batch
// commands are told by their entries: "r10:2" and "w10:2" as above, "R=40" and "W=40" for command
// bits of reads and of writes, in hexadecimal. Other frames stand there byte by byte.
Frames frames(const std::string& text);

// The parts of a text that blanks separate.
std::vector<std::string> split(const std::string& text);

// Words that all differ from their neighbours.
Words countingWords(std::size_t count, std::uint16_t first = 0x1000);
// What the steps of a text write at an address.
Words wordsAt(std::uint32_t address, std::size_t count);

}  // namespace wrenlink::test

#endif
