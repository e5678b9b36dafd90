// Ctrl-C as a request: work that must not be cut off in its midst asks for it where it can stop.
//
// Threads: any may ask.
#ifndef WREN_INTERRUPTION_H
#define WREN_INTERRUPTION_H

namespace wren {

// From now on the first Ctrl-C, or request to end, is only noted; the second one ends the tool at
// once, so that nobody has to wait for an adapter that keeps it waiting. Where the tool was started
// to ignore Ctrl-C, it goes on doing so.
void noteInterrupts() noexcept;

// Whether one was noted.
bool interrupted() noexcept;

// Waits; false when that was interrupted.
bool waitFor(double seconds);

}  // namespace wren

#endif
