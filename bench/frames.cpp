#include <algorithm>

#include "bench/bare_exchange.h"

namespace wrenlink::bench {
namespace {

constexpr std::uint32_t kReadPiece = 505;
constexpr std::uint32_t kWritePiece = 504;

void putBig(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

void putLittle(std::vector<std::uint8_t>& bytes, std::uint32_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value));
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
}

Frame accessFrame(std::uint32_t code, std::uint32_t address, std::uint32_t count,
                  std::uint32_t payload, std::uint32_t replySize) {
    Frame frame;
    putLittle(frame.bytes, 1 + 6 + payload);
    putLittle(frame.bytes, replySize);
    frame.bytes.push_back(0);
    putBig(frame.bytes, code);
    putBig(frame.bytes, address);
    putBig(frame.bytes, count);
    frame.bytes.resize(frame.bytes.size() + payload);
    frame.replySize = static_cast<std::uint16_t>(replySize);
    return frame;
}

template <class MakeFrame>
std::vector<Frame> wholeMemory(MakeFrame makeFrame, std::uint32_t piece) {
    std::vector<Frame> frames;
    for (std::uint32_t address = 0; address < kMemoryWords; address += piece)
        frames.push_back(makeFrame(address, std::min(piece, kMemoryWords - address)));
    return frames;
}

}  // namespace

Frame readFrame(std::uint32_t address, std::uint32_t count) {
    return accessFrame(0x0100, address, count, 0, 6 + 2 * count);
}

Frame writeFrame(std::uint32_t address, std::uint32_t count) {
    return accessFrame(0x0200, address, count, 2 * count, 0);
}

std::vector<Frame> wholeMemoryReads() { return wholeMemory(readFrame, kReadPiece); }
std::vector<Frame> wholeMemoryWrites() { return wholeMemory(writeFrame, kWritePiece); }

}  // namespace wrenlink::bench
