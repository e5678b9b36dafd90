// What the module trace_probe exports: calls of the message handler, as traced functions make them.
#ifndef WRENLINK_TESTS_DIAG_TRACE_PROBE_H
#define WRENLINK_TESTS_DIAG_TRACE_PROBE_H

// probeTraced: a function that returns 7, with a debug line, two profile marks and an error.
using ProbeTraced = int();
inline constexpr const char* kProbeTraced = "probeTraced";

// probeText: a plain function that puts out one debug line with this text, which may be null.
using ProbeText = void(const char* text);
inline constexpr const char* kProbeText = "probeText";

// probeActivated: whether debug output is wanted.
using ProbeActivated = bool();
inline constexpr const char* kProbeActivated = "probeActivated";

// The debug line of a traced function that runs while the module's static objects are destroyed.
inline constexpr const char* kProbeFarewell = "the module goes";

#endif
