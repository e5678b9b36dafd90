#include "failure.h"

#include <wrenlink/spifns.h>

#include <algorithm>

namespace wren {

namespace {

constexpr const char* kTellUs = "run it again with -vv --log FILE and report what FILE holds";

constexpr std::array kRemedies{
    Remedy{SPIFNS_ERROR_ARGUMENT, ExitCode::failed, "'wren get' lists the variables"},
    Remedy{SPIFNS_ERROR_OUT_OF_MEMORY, ExitCode::failed, "end other programs and try again"},
    Remedy{SPIFNS_ERROR_NO_DEVICE_SELECTED, ExitCode::failed, "choose an adapter with --port"},
    Remedy{SPIFNS_ERROR_SHARED_MEMORY, ExitCode::failed,
           "check that this user may use the objects that hosts of the adapter share"},
    Remedy{SPIFNS_ERROR_ADDRESS, ExitCode::failed, "addresses go from 0 to 0xffff"},
    Remedy{SPIFNS_ERROR_LENGTH, ExitCode::failed, "read or write fewer words at once"},
    Remedy{SPIFNS_ERROR_NO_DEVICE, ExitCode::noAdapter, "'wren ports' lists the adapters"},
    Remedy{SPIFNS_ERROR_OPEN, ExitCode::unreachable,
           "check that the adapter is plugged in and that this user may open it"},
    Remedy{SPIFNS_ERROR_IO, ExitCode::unreachable,
           "check that the adapter is plugged in, then try again"},
    Remedy{SPIFNS_ERROR_ADAPTER, ExitCode::failed,
           "check the chip's power and wiring, and try a lower --clock"},
    Remedy{SPIFNS_ERROR_FIRMWARE, ExitCode::failed,
           "'wren info' shows the adapter's firmware; a newer one can do it"},
};

constexpr Remedy kUnknown{0, ExitCode::failed, kTellUs};

}  // namespace

const Remedy& remedyFor(int errorCode) noexcept {
    const auto* found = std::ranges::find(kRemedies, errorCode, &Remedy::errorCode);
    return found != kRemedies.end() ? *found : kUnknown;
}

}  // namespace wren
