// An adapter on the test's own bench: frames and replies as lower-case hexadecimal text.
#ifndef WRENLINK_TESTS_SIM_BENCH_H
#define WRENLINK_TESTS_SIM_BENCH_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/model/adapter.h"
#include "sim/model/command.h"

namespace quillsim::test {

inline constexpr std::uint32_t kRefusal = 22;

// Ignores spaces.
inline std::vector<std::uint8_t> fromHex(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    std::string digits;
    for (const char character : text) {
        if (character == ' ') continue;
        digits += character;
        if (digits.size() < 2) continue;
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
        digits.clear();
    }
    return bytes;
}

inline TextWriter writerTo(std::string& text) {
    return {[](void* context, std::string_view piece) {
                static_cast<std::string*>(context)->append(piece);
            },
            &text};
}

class Bench {
   public:
    Answer exchange(const std::vector<std::uint8_t>& frame, std::uint32_t capacity = 1020,
                    std::uint32_t controlCode = kControlCode) {
        // Exactly as long as the frame, so that a read beyond its end is found.
        const std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[frame.size()]);
        for (std::size_t i = 0; i < frame.size(); ++i) copy[i] = frame[i];
        return adapter->handle({controlCode, capacity, {copy.get(), frame.size()}}, reply);
    }

    // The reply to a frame, or "error " and the status.
    std::string ask(std::string_view frame, std::uint32_t capacity = 1020) {
        const Answer answer = exchange(fromHex(frame), capacity);
        if (answer.status != 0) return "error " + std::to_string(answer.status);
        std::string text;
        if (answer.replySize > 0) writerTo(text).bytes(Bytes(reply).first(answer.replySize));
        return text;
    }

    // A command's answer, its outcome included.
    std::string control(std::string_view line) {
        Adapter* const adapters[] = {adapter.get()};
        std::string text;
        TextWriter writer = writerTo(text);
        runCommand({adapters, [](void*, std::size_t, bool) { return true; }, nullptr}, line,
                   writer);
        return text;
    }

    const std::unique_ptr<Adapter> adapter = std::make_unique<Adapter>(0x12345678, kRefusal);
    std::vector<std::uint8_t> reply = std::vector<std::uint8_t>(kReplyRoom);
};

}  // namespace quillsim::test

#endif
