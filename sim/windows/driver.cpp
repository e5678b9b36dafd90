// quillsim.sys: the entry point of the simulator's driver. Requests go to the role of the device
// that they are for.
#include "sim/windows/bus.h"

namespace {

using quillsim::Bus;

NTSTATUS addDevice(DRIVER_OBJECT* driver, DEVICE_OBJECT* below) { return Bus::add(driver, below); }

NTSTATUS dispatch(DEVICE_OBJECT* device, IRP* irp) {
    IO_STACK_LOCATION& stack = *IoGetCurrentIrpStackLocation(irp);
    if (quillsim::Role* const role = quillsim::roleOf(*device)) return role->serve(*irp, stack);
    const bool closes =
        stack.MajorFunction == IRP_MJ_CLEANUP || stack.MajorFunction == IRP_MJ_CLOSE;
    return quillsim::complete(*irp, closes ? STATUS_SUCCESS : STATUS_DELETE_PENDING);
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
