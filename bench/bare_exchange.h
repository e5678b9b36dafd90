// The baseline of the benchmarks: the least program that has an adapter carry out a request. It
// connects, sends, receives and closes, as the protocol wants it for every request; it takes no
// lock, has no time limit and reports no error but by ending the program. It shares no code with
// the library.
#ifndef WRENLINK_BENCH_BARE_EXCHANGE_H
#define WRENLINK_BENCH_BARE_EXCHANGE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wrenlink::bench {

inline constexpr std::uint32_t kMemoryWords = 65536;

// A request as the adapter takes it, and the number of bytes that it answers.
struct Frame {
    std::vector<std::uint8_t> bytes;
    std::uint16_t replySize = 0;
};

// One read of at most 505 words.
Frame readFrame(std::uint32_t address, std::uint32_t count);
// One write of count words (at most 504) of zero.
Frame writeFrame(std::uint32_t address, std::uint32_t count);
// The frames that read or write the whole memory.
std::vector<Frame> wholeMemoryReads();
std::vector<Frame> wholeMemoryWrites();

// The device paths of the present adapters, in order.
std::vector<std::string> adapterPaths();

// What an exchange does besides: nothing, or (POSIX) the system calls that a lock and a time limit
// take, which tells how much of the library's time is theirs.
enum class Guards { none, lockAndLimit };

// Exchanges with one adapter.
class BareExchange {
   public:
    explicit BareExchange(const std::string& devicePath, Guards guards = Guards::none)
        : devicePath_(devicePath), guards_(guards) {}
    void run(const Frame& frame);

   private:
    std::string devicePath_;
    [[maybe_unused]] const Guards guards_;
    std::uint8_t reply_[1024];
};

}  // namespace wrenlink::bench

#endif
