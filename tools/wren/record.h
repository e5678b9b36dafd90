// The record of a production line: what was done at which adapter, one JSON object a line.
//
// Threads: may be called from any, for an Adapter that it works with. Failures are thrown as
// Failure.
#ifndef WREN_RECORD_H
#define WREN_RECORD_H

#include <chrono>

#include "adapter.h"

namespace wren {

// Adds the line of a command that has ended at an adapter, as its report tells, after so long;
// nothing when the user wants no record.
void record(const Adapter& adapter, std::chrono::duration<double> taken);

}  // namespace wren

#endif
