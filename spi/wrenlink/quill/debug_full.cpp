#include "quill/debug_full.h"

#include <string>

#include "platform/os.h"
#include "quill/number_text.h"

namespace wrenlink {
namespace {

bool debugFull = false;

}  // namespace

DebugFullSwitch::DebugFullSwitch() {
    std::string value;
    debugFull =
        os::environmentVariable("SPIDEBUG_FULL", value) &&
        (equalsIgnoringCase(value.c_str(), "ON") || equalsIgnoringCase(value.c_str(), "TRUE"));
}

bool isDebugFull() { return debugFull; }

}  // namespace wrenlink
