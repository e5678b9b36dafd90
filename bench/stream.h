// The library as the benchmarks use it: through its exports, as a host does. A failure ends the
// program with the library's last error.
#ifndef WRENLINK_BENCH_STREAM_H
#define WRENLINK_BENCH_STREAM_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "wrenlink/spifns.h"

namespace wrenlink::bench {

using Words = std::vector<std::uint16_t>;
using Actions = std::vector<SpiAction>;

// Ends the program unless a call's status is that of success.
void require(int status);

// A read or a write of so many words from or to the host's buffer.
SpiAction access(std::uint32_t type, std::uint32_t address, std::size_t count,
                 std::uint16_t* words);

// The accesses, each as long as one may be, that reach all the words from address 0 on.
Actions accessesToAll(std::uint32_t type, Words& words);

// A stream with the adapter of one port selected.
class Stream {
   public:
    explicit Stream(unsigned port = 0);
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { spifns_stream_close(id_); }

    std::uint32_t id() const { return id_; }
    void set(const char* name, const char* value) const;
    void run(std::span<SpiAction> actions) const;

   private:
    std::uint32_t id_ = SPIFNS_NO_STREAM;
};

}  // namespace wrenlink::bench

#endif
