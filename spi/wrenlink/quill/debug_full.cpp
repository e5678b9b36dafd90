#include "quill/debug_full.h"

#include <new>
#include <string>

#include "platform/os.h"
#include "quill/number_text.h"

namespace wrenlink {

constinit bool DebugFullSwitch::isOn_ = false;

DebugFullSwitch::DebugFullSwitch() noexcept {
    isOn_ = false;
    try {
        std::string value;
        isOn_ =
            os::environmentVariable("SPIDEBUG_FULL", value) &&
            (equalsIgnoringCase(value.c_str(), "ON") || equalsIgnoringCase(value.c_str(), "TRUE"));
    } catch (const std::bad_alloc&) {
        // An exception here would end the host that loads the library.
    }
}

}  // namespace wrenlink
