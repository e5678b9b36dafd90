// How a program steers the simulator's driver: it opens the control device and sends control
// requests, each with a command line (no line end) as input and the answer's text as output. The
// answer ends with a line that is "ok" or begins with "error: ".
#ifndef WRENLINK_SIM_WINDOWS_CONTROL_PROTOCOL_H
#define WRENLINK_SIM_WINDOWS_CONTROL_PROTOCOL_H

#include <cstddef>
#include <cstdint>

namespace quillsim {

// The control device as programs name it.
inline constexpr char kControlPath[] = R"(\\.\quillsim)";

// Buffered, for any access. An answer that is longer than the output buffer makes the request fail
// with ERROR_MORE_DATA, though the command has been carried out. Only commands that show something
// have long answers, and those change nothing then: send them again with a larger buffer.
inline constexpr std::uint32_t kControlRequest = 0x222000;

// Why no adapters are lent while another program has some.
inline constexpr char kLentAlready[] = "another program has adapters of its own now";

inline constexpr std::size_t kLongestLine = 4096;

// The hardware id of the bus device, by which the INF file finds it.
inline constexpr char kBusHardwareId[] = R"(root\quillsim)";

// The most adapters that the driver can offer, and lend to one program.
inline constexpr std::size_t kMostAdapters = 64;
inline constexpr std::size_t kMostLent = 32;

}  // namespace quillsim

#endif
