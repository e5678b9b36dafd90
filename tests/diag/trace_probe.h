// What the module trace_probe exports: calls of the message handler, as traced functions make them.
// While its static objects are destroyed, one more function puts out "the module goes".
#ifndef WRENLINK_TESTS_DIAG_TRACE_PROBE_H
#define WRENLINK_TESTS_DIAG_TRACE_PROBE_H

#define PROBE_EXPORT __attribute__((visibility("default")))

extern "C" {
// A function that returns 7, with a debug line, two profile marks and an error.
PROBE_EXPORT int probeTraced();
// A plain function that puts out one debug line with this text, which may be null.
PROBE_EXPORT void probeText(const char* text);
// Whether debug output is wanted.
PROBE_EXPORT bool probeActivated();
}

#endif
