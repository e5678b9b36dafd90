// The switch for the full debug text of streams, taken from the environment variable SPIDEBUG_FULL.
#ifndef WRENLINK_QUILL_DEBUG_FULL_H
#define WRENLINK_QUILL_DEBUG_FULL_H

namespace wrenlink {

// Reads SPIDEBUG_FULL, once, when the library is loaded. Later changes have no effect.
class DebugFullSwitch {
   public:
    DebugFullSwitch() noexcept;
    // Whether it was "ON" or "TRUE", in any case.
    static bool isOn() { return isOn_; }

   private:
    static bool isOn_;
};

}  // namespace wrenlink

#endif
