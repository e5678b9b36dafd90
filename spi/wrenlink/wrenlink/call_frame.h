// The frame that every stream export runs: open a trace scope, take a reference to the stream, work
// on it, give the reference back, close the scope, which prints the result.
#ifndef WRENLINK_WRENLINK_CALL_FRAME_H
#define WRENLINK_WRENLINK_CALL_FRAME_H

#include <cstdint>
#include <new>
#include <optional>

#include "diag/result_sentry.h"
#include "quill/host_call.h"
#include "quill/last_error.h"
#include "wrenlink/call_gate.h"
#include "wrenlink/stream_table.h"

namespace wrenlink {

// A call's stream, by its identifier; without one, the legacy stream.
using StreamName = std::optional<std::uint32_t>;
inline constexpr StreamName kLegacyStream;

inline CUsbStreamRef findStream(StreamName name) {
    return name ? streamTable().getStream(*name) : streamTable().getLegacyStream();
}

// Stores 257 "Out of memory"; quietly nothing when there is no memory for that either.
inline void reportOutOfMemory() noexcept {
    try {
        Quill_SetLastError(257, 0, "Out of memory");
    } catch (const std::bad_alloc&) {
    }
}

// Runs some work so that running out of memory does not reach the host, which may be written in C.
// What a host's own callback throws passes through, also when that is std::bad_alloc.
template <class Work>
void guardMemory(Work&& work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        reportOutOfMemory();
    } catch (const HostThrew& host) {
        std::rethrow_exception(host.what);
    }
}

// Runs work(stream) on the named stream; 262 "Invalid stream" when there is none. Does nothing once
// the process has unloaded the library.
template <class Work>
void onStream(StreamName name, Work&& work) {
    const Call call;
    if (!call) return;
    guardMemory([&] {
        const CUsbStreamRef stream = findStream(name);
        if (stream)
            work(*stream);
        else
            Quill_SetLastError(262, 0, "Invalid stream");
    });
}

// The same in the trace scope of the calling export, returning what the work returns, or `missing`
// when there is no stream or no memory.
template <class Result, class Work>
Result tracedOnStream(StreamName name, Result missing, Work&& work,
                      const char* function = __builtin_FUNCTION(),
                      const char* file = __builtin_FILE(), unsigned long line = __builtin_LINE()) {
    Result result = missing;
    const ResultTrace<Result> trace(result, function, file, line);
    onStream(name, [&](CUsbStreamData& stream) { result = work(stream); });
    return result;
}

}  // namespace wrenlink

#endif
