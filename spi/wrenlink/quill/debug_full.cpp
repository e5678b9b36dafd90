#include "quill/debug_full.h"

#include <new>
#include <string>

#include "platform/os.h"
#include "quill/number_text.h"

namespace wrenlink {
namespace {

bool debugFull = false;

}  // namespace

DebugFullSwitch::DebugFullSwitch() noexcept {
    debugFull = false;
    try {
        std::string value;
        debugFull =
            os::environmentVariable("SPIDEBUG_FULL", value) &&
            (equalsIgnoringCase(value.c_str(), "ON") || equalsIgnoringCase(value.c_str(), "TRUE"));
    } catch (const std::bad_alloc&) {
        // An exception here would end the host that loads the library.
    }
}

bool isDebugFull() { return debugFull; }

}  // namespace wrenlink
