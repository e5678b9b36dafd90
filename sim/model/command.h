// The text commands with which a test or a person steers the simulator and reads what it saw. The
// README beside this folder lists them. The caller sees to it that no request is served meanwhile.
#ifndef WRENLINK_SIM_MODEL_COMMAND_H
#define WRENLINK_SIM_MODEL_COMMAND_H

#include <cstddef>
#include <span>
#include <string_view>

#include "sim/model/adapter.h"
#include "sim/model/text.h"

namespace quillsim {

// The adapters that commands work on; an adapter's number is its place here.
struct Bench {
    std::span<Adapter* const> adapters;
    // Makes an adapter appear or vanish to the hosts; false when the system cannot. The command
    // itself notes the outcome in the adapter.
    bool (*plug)(void* context, std::size_t adapter, bool plugged) = nullptr;
    void* context = nullptr;
};

// Carries out one command line (no line end). Writes the answer's lines and then a line that is
// "ok", or "error: " and a reason; returns whether it was "ok".
bool runCommand(const Bench& bench, std::string_view line, TextWriter& out);

}  // namespace quillsim

#endif
