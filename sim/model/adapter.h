// One simulated adapter with the chip behind it: firmware settings, 65536 words of chip memory, XAP
// state, MGCMD, armed faults and the request log. It does no I/O and takes no lock: whoever serves
// it calls it from one thread at a time and carries its answers out. About 1.3 MB; it is made in
// memory that the server provides.
#ifndef WRENLINK_SIM_MODEL_ADAPTER_H
#define WRENLINK_SIM_MODEL_ADAPTER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "sim/model/faults.h"
#include "sim/model/request_log.h"
#include "sim/model/wire.h"

namespace quillsim {

inline constexpr std::size_t kMemoryWords = 65536;
// Room for the longest reply and for what an over-long one adds to it.
inline constexpr std::size_t kReplyRoom = 4096;
inline constexpr std::uint16_t kPowerOnDelay = 4;

struct Settings {
    std::uint32_t id = 0;
    std::uint16_t firmware = 0x0109;  // major in the high byte
    std::uint16_t xap = 0;            // state word, nonzero stopped
    std::uint16_t mgcmdFirst = 0;
    std::uint16_t mgcmdSecond = 0;
    bool mgcmdReady = false;  // initialised
    bool xapFails = false;    // the state query reports failure
    bool dfu = false;         // DFU mode was entered; commands are answered all the same
    std::uint64_t answerMicroseconds = 0;  // how long every request takes
    RequestContext spi{.delay = kPowerOnDelay};
};

struct Request {
    std::uint32_t controlCode = 0;
    std::uint32_t replyCapacity = 0;
    Bytes frame;
};

// Counts what the driver sees of its hosts.
struct OpenCounts {
    std::uint64_t total = 0;
    std::uint32_t now = 0;
    std::uint32_t peak = 0;
};

class Adapter {
   public:
    // refusal is the native status with which a request that is not understood fails.
    Adapter(std::uint32_t id, std::uint32_t refusal) : refusal_(refusal) { settings.id = id; }

    // Serves one request. The reply, at most replyCapacity bytes unless a fault lengthens it, goes
    // to the reply buffer, of kReplyRoom bytes, which must not overlap the request.
    Answer handle(const Request& request, std::span<std::uint8_t> reply);

    void opened();
    void closed() { --opens_.now; }
    const OpenCounts& opens() const { return opens_; }
    // Forgets the logged requests and counts opens anew, from those that are still open.
    void clearLog();

    std::uint16_t word(std::uint32_t address) const { return memory_[address % kMemoryWords]; }
    void setWord(std::uint32_t address, std::uint16_t value) {
        memory_[address % kMemoryWords] = value;
    }
    // Marks words, first to last, as ones that the chip does not give: a read that touches one
    // reports failure, a write to one is lost.
    void setFaulty(std::uint16_t first, std::uint16_t last);
    void clearFaulty() { faulty_.fill(0); }

    Settings settings;
    FaultList faults;
    RequestLog log;
    bool plugged = true;

   private:
    // Each writes its reply and returns its size.
    std::size_t carryOut(Bytes frame, std::span<std::uint8_t> reply);
    std::size_t carryOutBatch(Bytes frame, std::span<std::uint8_t> reply);
    std::size_t carryOutMgcmd(Bytes frame, std::span<std::uint8_t> reply) const;
    std::size_t readWords(const Entry& entry, std::span<std::uint8_t> reply) const;
    void writeWords(const Entry& entry);
    bool isFaulty(std::uint32_t address) const;

    std::uint32_t refusal_;
    OpenCounts opens_;
    std::array<std::uint8_t, kReplyLimit> latestReply_{};  // with a byte in it
    std::size_t latestReplySize_ = 0;
    std::array<std::uint16_t, kMemoryWords> memory_{};
    std::array<std::uint8_t, kMemoryWords / 8> faulty_{};
};

}  // namespace quillsim

#endif
