// What the tool does: one function for each of its commands. It checks what the arguments make
// together, each of which has been checked by itself, and returns what is to be done with each
// adapter, or nothing when all is done by then; that refers to the request. Failures are thrown as
// Failure.
//
// Threads: called once, by the main thread. What is returned may work with several adapters at
// once.
#ifndef WREN_COMMANDS_H
#define WREN_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "adapter.h"
#include "image_source.h"

namespace wren {

struct PortsRequest {
    std::size_t awaited = 0;             // adapters to wait for
    std::optional<double> watchSeconds;  // from one look to the next
};

struct ReadRequest {
    std::optional<std::uint32_t> address, count;
    std::optional<std::string> file;  // else standard output, as text
    FormatChoice format;
};

// How words are written.
struct WriteManner {
    bool verify = true;
    bool changedOnly = false;  // those that differ from what is there
    bool dryRun = false;       // not at all: what would be written is told
};

struct WriteRequest {
    ImageSource source;
    WriteManner manner;
};

struct CompareRequest {
    ImageSource source;
    std::size_t mostListed = 8;
};

struct FillRequest {
    std::optional<std::uint32_t> address, count;
    std::vector<std::uint16_t> pattern;  // repeated from the address on
    WriteManner manner;
};

struct DumpRequest {
    std::optional<std::uint32_t> address;  // else 0
    std::optional<std::uint32_t> count;    // else 128 words, or what is left of the memory
    std::optional<double> watchSeconds;    // from one look to the next
    std::uint64_t mostLooks = 0;           // 0: until Ctrl-C
};

struct MgcmdRequest {
    std::vector<std::uint16_t> words;
    std::vector<std::uint16_t> preparation;  // two words, or none
    bool strict = true;
};

struct SpeedRequest {
    double seconds = 1;
};

Work listPorts(const PortsRequest& request, Context& context);
Work showInfo();
Work showXapState();
Work measureSpeed(const SpeedRequest& request);

Work readMemory(const ReadRequest& request, const Context& context);
Work writeMemory(const WriteRequest& request);
Work compareMemory(const CompareRequest& request);
Work fillMemory(const FillRequest& request);
Work dumpMemory(const DumpRequest& request, const Context& context);

// All that can be read, without names.
Work getVariables(const std::vector<std::string>& names);
Work setVariables(const std::vector<std::string>& settings);

Work sendCommand(const std::string& name);
Work sendMgcmd(const MgcmdRequest& request);
Work runScript(const std::string& file);

}  // namespace wren

#endif
