#include <windows.h>

#include <cstdio>
#include <cstdlib>

#include "bench/bare_exchange.h"
#include "sim/windows/installation.h"

namespace wrenlink::bench {
namespace {

void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "%s: error %lu\n", what, ::GetLastError());
    std::exit(1);
}

}  // namespace

std::vector<std::string> adapterPaths() { return quillsim::listAdapters(); }

void BareExchange::run(const Frame& frame) {
    const HANDLE device =
        ::CreateFileA(devicePath_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    require(device != INVALID_HANDLE_VALUE, "open");
    DWORD received = 0;
    const BOOL done = ::DeviceIoControl(
        device, 0x220000, const_cast<std::uint8_t*>(frame.bytes.data()),
        static_cast<DWORD>(frame.bytes.size()), reply_, frame.replySize, &received, nullptr);
    require(done && received == frame.replySize, "request");
    ::CloseHandle(device);
}

}  // namespace wrenlink::bench
