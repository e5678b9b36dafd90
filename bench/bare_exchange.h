// The baseline of the benchmarks: the least program that has an adapter carry out a request. It
// connects, sends, receives and closes, as the protocol wants it for every request, and reports no
// error but by ending the program. It shares no code with the library.
#ifndef WRENLINK_BENCH_BARE_EXCHANGE_H
#define WRENLINK_BENCH_BARE_EXCHANGE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
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

// The name of a lock that hosts share, made for this process, so that the benchmarks disturb
// nobody.
std::string makeLock(std::string_view purpose);

// Holds the lock of a name while it lives; of no name, nothing.
class SharedLock {
   public:
    explicit SharedLock(const std::string& name);
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;
    ~SharedLock();

   private:
    std::intptr_t lock_ = -1;
};

// What an exchange does besides: nothing, or what hosts that share the adapter demand, a lock, and
// what ends a request that nobody answers, a time limit, with the least calls that give both.
enum class Guards { none, lockAndLimit };

// Exchanges with one adapter.
class BareExchange {
   public:
    explicit BareExchange(const std::string& devicePath, Guards guards = Guards::none)
        : devicePath_(devicePath),
          limited_(guards != Guards::none),
          lock_(limited_ ? makeLock(devicePath) : "") {}
    void run(const Frame& frame);

   private:
    const std::string devicePath_;
    const bool limited_;
    const std::string lock_;
    std::uint8_t reply_[1024];
};

}  // namespace wrenlink::bench

#endif
