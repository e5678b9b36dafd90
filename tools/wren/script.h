// Sequence files: one action a line, carried out as one sequence.
//
//     set SPICLOCK=500        a setting of a variable
//     write 0x100 1 2 0xabcd  words, from an address on
//     read 0x100 3            a number of words, from an address on
//
// What follows '#' is a comment.
//
// Threads: pure functions.
#ifndef WREN_SCRIPT_H
#define WREN_SCRIPT_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "image.h"
#include "settings.h"

namespace wren {

enum class ActionKind { read, write, set };

// One line.
struct ScriptAction {
    ActionKind kind = ActionKind::read;
    std::size_t line = 0;
    Segment segment;  // what to write, or room for what is read
    Setting setting;
};

// Throws Failure (ExitCode::failed), with the number of the line that makes no sense.
std::vector<ScriptAction> parseScript(std::string_view text);

}  // namespace wren

#endif
