#include "sim/capture_file.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <system_error>

namespace quillsim {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Blocks of the file.
constexpr std::uint32_t kSection = 0x0A0D0D0A;
constexpr std::uint32_t kInterface = 1;
constexpr std::uint32_t kPacket = 6;

// Their options.
constexpr std::uint16_t kEndOfOptions = 0;
constexpr std::uint16_t kSectionApplication = 4;
constexpr std::uint16_t kInterfaceName = 2;
constexpr std::uint16_t kInterfaceDescription = 3;
constexpr std::uint16_t kInterfaceResolution = 9;
constexpr std::uint16_t kPacketFlags = 2;

constexpr std::uint32_t kByteOrder = 0x1A2B3C4D;
constexpr std::uint8_t kNanoseconds = 9;  // a negative power of ten
constexpr std::uint32_t kInbound = 1;
constexpr std::uint32_t kOutbound = 2;

// Packets of this type begin with tags, high byte first: here one that names the dissector, which
// is 8 characters long, and the one that ends them.
constexpr std::uint16_t kTaggedPackets = 252;
constexpr std::string_view kTags{"\0\x0C\0\x08wrenlink\0\0\0\0", 16};

// Writes low bytes first, which the section's byte-order mark tells.
template <class Value>
void append(Bytes& bytes, Value value) {
    for (std::size_t i = 0; i < sizeof value; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    }
}

template <class Range>
void appendAll(Bytes& bytes, const Range& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void pad(Bytes& bytes) { bytes.resize((bytes.size() + 3) / 4 * 4); }

template <class Range>
void appendOption(Bytes& bytes, std::uint16_t code, const Range& value) {
    append(bytes, code);
    append(bytes, static_cast<std::uint16_t>(value.size()));
    appendAll(bytes, value);
    pad(bytes);
}

// A block's length stands before and behind its contents.
Bytes block(std::uint32_t type, const Bytes& contents) {
    const auto size = static_cast<std::uint32_t>(contents.size() + 12);
    Bytes bytes;
    bytes.reserve(size);
    append(bytes, type);
    append(bytes, size);
    appendAll(bytes, contents);
    append(bytes, size);
    return bytes;
}

Bytes section() {
    Bytes contents;
    append(contents, kByteOrder);
    append(contents, std::uint16_t{1});  // version 1.0
    append(contents, std::uint16_t{0});
    append(contents, ~std::uint64_t{0});  // of unknown length
    appendOption(contents, kSectionApplication, std::string_view("quillsim"));
    appendOption(contents, kEndOfOptions, Bytes{});
    return block(kSection, contents);
}

std::uint64_t nanosecondsNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

Bytes packetBlock(std::uint32_t interface, const Packet& packet) {
    Bytes data;
    appendAll(data, kTags);
    append(data, static_cast<std::uint32_t>(packet.kind));
    append(data, packet.connection);
    append(data, packet.request);
    appendAll(data, packet.message);

    const std::uint64_t now = nanosecondsNow();
    const auto size = static_cast<std::uint32_t>(data.size());
    Bytes contents;
    append(contents, interface);
    append(contents, static_cast<std::uint32_t>(now >> 32));
    append(contents, static_cast<std::uint32_t>(now));
    append(contents, size);  // as captured
    append(contents, size);  // as it was
    appendAll(contents, data);
    pad(contents);
    Bytes direction;
    append(direction, packet.kind == PacketKind::request ? kInbound : kOutbound);
    appendOption(contents, kPacketFlags, direction);
    appendOption(contents, kEndOfOptions, Bytes{});
    return block(kPacket, contents);
}

}  // namespace

CaptureFile::CaptureFile(const std::string& path)
    : path_(path), file_(std::fopen(path.c_str(), "ab"), &std::fclose) {
    if (!file_) throw std::system_error(errno, std::generic_category(), path_);
    // A block is one write, which who reads meanwhile, or after a crash, finds whole.
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);
}

void CaptureFile::start() {
    if (std::filesystem::is_regular_file(path_)) std::filesystem::resize_file(path_, 0);
    writeOrThrow(section());
}

std::uint32_t CaptureFile::addInterface(const std::string& name, const std::string& description) {
    Bytes contents;
    append(contents, kTaggedPackets);
    append(contents, std::uint16_t{0});
    append(contents, std::uint32_t{0});  // packets are captured whole
    appendOption(contents, kInterfaceName, name);
    appendOption(contents, kInterfaceDescription, description);
    appendOption(contents, kInterfaceResolution, Bytes{kNanoseconds});
    appendOption(contents, kEndOfOptions, Bytes{});
    writeOrThrow(block(kInterface, contents));
    return interfaces_++;
}

void CaptureFile::add(std::uint32_t interface, const Packet& packet) {
    if (!file_ || write(packetBlock(interface, packet))) return;
    const std::string reason = std::generic_category().message(errno);
    std::cerr << "quillsim: " << path_ << ": no more is captured: " << reason << std::endl;
    file_.reset();
    // A packet that is there in part would make the file a broken one.
    std::error_code ignored;
    std::filesystem::resize_file(path_, written_, ignored);
}

bool CaptureFile::write(const std::vector<std::uint8_t>& block) {
    if (std::fwrite(block.data(), 1, block.size(), file_.get()) != block.size()) return false;
    written_ += block.size();
    return true;
}

void CaptureFile::writeOrThrow(const std::vector<std::uint8_t>& block) {
    if (!write(block)) throw std::system_error(errno, std::generic_category(), path_);
}

}  // namespace quillsim
