// An adapter inside the process, in place of the operating system's devices: it carries out every
// request at once, so that what the library does besides can be measured. Its firmware is 1.9;
// reads give zeros. It ends the program on a request that is not well formed.
#include <cstdlib>
#include <cstring>

#include "platform/os.h"

namespace wrenlink::bench {
namespace {

unsigned big(const std::uint8_t* bytes) { return unsigned{bytes[0]} << 8 | bytes[1]; }

// Answers the entries of a batch and returns the size of the reply.
std::size_t answerBatch(const std::uint8_t* entry, const std::uint8_t* end, std::uint8_t* reply) {
    const std::uint8_t* const start = reply;
    while (entry + 6 <= end) {
        const unsigned words = 2 * big(entry + 4);
        if (big(entry) == 0x0100) {
            std::memcpy(reply, entry, 6);
            std::memset(reply + 6, 0, words);
            reply += 6 + words;
        }
        entry += 6 + 2 + (big(entry) == 0x0200 ? words : 0);
    }
    return static_cast<std::size_t>(reply - start);
}

std::size_t answer(const std::uint8_t* code, const std::uint8_t* end, std::uint8_t* reply) {
    constexpr std::uint8_t kVersion[] = {0x08, 0x00, 1, 9};
    constexpr std::uint8_t kId[] = {0x07, 0x00, 0, 0, 0, 100};
    switch (big(code)) {
        case 0x0100:
        case 0x0200:
        case 0x0F00:
            return answerBatch(code, end, reply);
        case 0x0700:
            std::memcpy(reply, kId, sizeof kId);
            return sizeof kId;
        case 0x0800:
            std::memcpy(reply, kVersion, sizeof kVersion);
            return sizeof kVersion;
        default:
            return 0;
    }
}

}  // namespace
}  // namespace wrenlink::bench

namespace wrenlink::os {

std::vector<std::string> presentAdapters(std::size_t) { return {"/instant/0"}; }

bool Device::open(const char*) noexcept { return true; }

bool Device::makeEvent() noexcept { return true; }

RequestStart Device::start(std::uint32_t, const void* request, std::size_t size, void* reply,
                           std::size_t capacity) noexcept {
    const auto* frame = static_cast<const std::uint8_t*>(request);
    const std::size_t answered =
        bench::answer(frame + 5, frame + size, static_cast<std::uint8_t*>(reply));
    if (answered != capacity) std::abort();
    return RequestStart::completed;
}

WaitResult Device::wait(std::uint32_t) noexcept { return WaitResult::acquired; }

bool Device::outcome() noexcept { return true; }

void Device::close() noexcept {}

}  // namespace wrenlink::os
