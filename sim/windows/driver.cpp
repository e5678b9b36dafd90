// quillsim.sys: the entry point of the simulator's driver. Requests go to the role of the device
// that they are for.
#include "sim/windows/bus.h"

namespace {

using quillsim::Bus;

NTSTATUS addDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* below) { return Bus::add(driver, below); }

NTSTATUS dispatch(DEVICE_OBJECT* device, IRP* irp) {
    return quillsim::roleOf(*device)->serve(*irp, *IoGetCurrentIrpStackLocation(irp));
}

// Its devices are gone by then, and all that it had with them.
void unload(DRIVER_OBJECT*) {}

}  // namespace

extern "C" NTSTATUS DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING*) {
    driver->DriverExtension->AddDevice = addDevice;
    driver->DriverUnload = unload;
    for (auto& function : driver->MajorFunction) function = dispatch;
    return STATUS_SUCCESS;
}

// Called by the standard headers where a view is cut behind its end. The kernel has no C++ library
// and nobody who could catch what that would throw.
namespace std {
[[noreturn]] void __throw_out_of_range_fmt(const char*, ...) { __builtin_trap(); }
}  // namespace std
