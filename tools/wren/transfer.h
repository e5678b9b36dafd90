// Transfers of whole images: cut into chunks that one sequence can carry, with progress told.
// Ctrl-C ends them between two chunks.
//
// Threads: as the Adapter's. Failures are thrown as Failure and tell how far the transfer got; the
// chunks before stay done.
#ifndef WREN_TRANSFER_H
#define WREN_TRANSFER_H

#include <span>

#include "adapter.h"
#include "image.h"

namespace wren {

// Fills the segments' words; doing tells what for.
void readSegments(Adapter& adapter, std::span<Segment> segments, const char* doing = "reading");
// The report's result tells how many words were written, as far as it got.
void writeSegments(Adapter& adapter, std::span<const Segment> segments);

}  // namespace wren

#endif
