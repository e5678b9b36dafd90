// The variables of a stream: named texts by which hosts configure and inspect it. Names are
// compared without regard to case.
#ifndef WRENLINK_QUILL_STREAM_VARIABLES_H
#define WRENLINK_QUILL_STREAM_VARIABLES_H

#include <cstdint>

#include "wrenlink/spifns.h"

namespace wrenlink {

struct QuillStream;

// The command bits of a stream that a variable sets; they travel with its reads and writes.
enum class CommandBits { none, forReads, forWrites, both };

// Stores the address of the table's first record and the number of records, through pointers that
// are not null.
void Quill_GetKnownVars(const spifns_variable** list, std::uint32_t* count);

// The index of a name in the published table; their number when there is none.
int Quill_FindVar(const char* name);

// The command bits that the variable of that name sets; none when there is no such variable.
CommandBits commandBitsOf(const char* name);

// Reads a variable. The text belongs to the stream and lasts until the same variable is read again;
// "" for an unknown name and for null. SPI_DELAY and SPICLOCK may exchange; when that fails they
// read as delay 0, with the failure stored.
const char* Quill_Stream_GetVar(QuillStream* stream, const char* name);

// Sets a variable. Most exchange; an unknown name, and the command bits, which travel with
// sequences, do nothing. Returns 1 on failure: code 1 for a null or impossible argument, or what
// selecting, switching the mode, setting the delay or exchanging stored.
int Quill_Stream_SetVar(QuillStream* stream, const char* name, const char* value);

}  // namespace wrenlink

#endif
