// quillsim.sys: the entry point of the simulator's driver. Requests go to the role of the device
// that they are for.
#include "sim/windows/bus.h"

namespace {

using quillsim::Bus;

NTSTATUS addDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* below) { return Bus::add(driver, below); }

NTSTATUS dispatch(DEVICE_OBJECT* device, IRP* irp) {
    return quillsim::roleOf(*device).serve(*irp, *IoGetCurrentIrpStackLocation(irp));
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
