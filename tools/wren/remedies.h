// What the library's error codes mean to the user of the tool.
//
// Threads: pure functions.
#ifndef WREN_REMEDIES_H
#define WREN_REMEDIES_H

#include "failure.h"

namespace wren {

struct Remedy {
    int errorCode;
    ExitCode exitCode;
    const char* hint;  // the next thing to try
};

// Of any code; an unknown one is a failed operation.
const Remedy& remedyFor(int errorCode) noexcept;

}  // namespace wren

#endif
