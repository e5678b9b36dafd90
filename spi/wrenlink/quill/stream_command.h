// Commands of a stream: from the stream's port to its adapter's driver.
#ifndef WRENLINK_QUILL_STREAM_COMMAND_H
#define WRENLINK_QUILL_STREAM_COMMAND_H

#include <cstdint>

namespace wrenlink {

class CommandFrame;
struct QuillStream;

// Both forms exchange with the adapter that the stream has selected (waiting as Quill_Command does)
// and mark its settings unknown when that fails. False on failure, with the exchange's own last
// error; where the adapter layer is down, with none.

// Sends a batch command; the reply is placed from offset 5 of replyBase on. Without a selected
// adapter: 514 "No Quill device found". A failed exchange is reported to the stream's debug
// callback.
bool Quill_Stream_Command(QuillStream* stream, std::uint8_t* request, std::uint8_t* replyBase);

// Sends a single command and receives its reply in the frame. Without a selected adapter only the
// message handler is told and the last error stays as it was. A failed exchange is traced.
bool Quill_Stream_Command(QuillStream* stream, CommandFrame& frame);

}  // namespace wrenlink

#endif
