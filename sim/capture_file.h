// A file of what travels between hosts and adapters, in the pcapng format, which programs that show
// the traffic of networks and buses read. Each adapter is an interface of it; each packet says of
// itself that the dissector wrenlink is for it. Used from one thread.
#ifndef QUILLSIM_CAPTURE_FILE_H
#define QUILLSIM_CAPTURE_FILE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace quillsim {

enum class PacketKind : std::uint8_t {
    request = 1,     // control code, reply capacity and frame, as the host sends them
    completion = 2,  // status and reply, as they are sent to the host
    closed = 3       // the connection ended, by whomever, and the request stays unanswered
};

// A packet is three words of 32 bits, low byte first (kind, connection, request), and the message.
struct Packet {
    PacketKind kind = PacketKind::request;
    std::uint32_t connection = 0;  // tells the hosts of one adapter apart
    std::uint32_t request = 0;     // the same for a request and what ends it
    std::span<const std::uint8_t> message;
};

class CaptureFile {
   public:
    // Opens the file; one that is there stays as it is. A named pipe waits for its reader. Throws
    // std::system_error when the file cannot be written, as the next two do.
    explicit CaptureFile(const std::string& path);

    // Empties the file and begins anew.
    void start();

    // Adds an adapter, before its first packet, and returns its interface number.
    std::uint32_t addInterface(const std::string& name, const std::string& description);

    // Adds a packet, with the time that it is now, and hands it to the system at once. When the
    // file cannot grow any more, says so on the standard error stream, once, and leaves the whole
    // packets so far.
    void add(std::uint32_t interface, const Packet& packet);

    // Whether everything was added so far.
    bool isWhole() const { return file_ != nullptr; }

   private:
    bool write(const std::vector<std::uint8_t>& block);
    void writeOrThrow(const std::vector<std::uint8_t>& block);

    std::string path_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    std::uint64_t written_ = 0;  // bytes of whole blocks
    std::uint32_t interfaces_ = 0;
};

// Where the packets of one adapter go: nowhere, unless there is a file.
struct CapturePoint {
    CaptureFile* file = nullptr;
    std::uint32_t interface = 0;

    void add(const Packet& packet) const {
        if (file != nullptr) file->add(interface, packet);
    }
};

}  // namespace quillsim

#endif
