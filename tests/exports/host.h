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
    int set(const char* name, const char* value) const { return run({setting(name, value)}); }
    std::string get(const char* name) const { return spifns_stream_getvar(id_, name); }
    int read(std::uint32_t address, Words& words) const { return run({readInto(address, words)}); }
    int write(std::uint32_t address, const Words& words) const {
        return run({writeFrom(address, words)});
    }
    const char* command(const char* name) const { return spifns_stream_command(id_, name); }

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

// Hexadecimal text without its blanks, as frames are compared.
std::string hex(const std::string& spaced);

// A batch command's frame, built entry by entry.
class Batch {
   public:
    Batch& read(unsigned address, unsigned count);
    Batch& write(unsigned address, const Words& words);
    Batch& bits(unsigned forWrites, unsigned value);

    // In hexadecimal, with its lengths.
    operator std::string() const;

   private:
    Batch& entry(const Words& fields);

    std::string entries_;
    unsigned requestLength_ = 1;
    unsigned replyLength_ = 0;
};

// Words that all differ from their neighbours.
Words countingWords(std::size_t count, std::uint16_t first = 0x1000);

}  // namespace wrenlink::test

#endif
