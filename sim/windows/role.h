// What a device object of the driver is: the bus, an adapter, or the control device.
#ifndef WRENLINK_SIM_WINDOWS_ROLE_H
#define WRENLINK_SIM_WINDOWS_ROLE_H

#include "sim/windows/kernel.h"

namespace quillsim {

// Ends a request with a status and so many bytes of output.
inline NTSTATUS complete(IRP& irp, NTSTATUS status, ULONG_PTR information = 0) {
    irp.IoStatus.Status = status;
    irp.IoStatus.Information = information;
    ::IoCompleteRequest(&irp, IO_NO_INCREMENT);
    return status;
}

// Serves the requests to one device object, whose extension points to it. Requests come at passive
// level and from any number of threads at once.
class Role {
   public:
    // Completes the request, passes it on or keeps it, and returns its status. A role that does not
    // know a request leaves it to this one, which refuses it.
    virtual NTSTATUS serve(IRP& irp, IO_STACK_LOCATION& /*stack*/) {
        return complete(irp, STATUS_INVALID_DEVICE_REQUEST);
    }

   protected:
    ~Role() = default;
};

struct DeviceExtension {
    Role* role;
};

// Null when the device has none any more.
inline Role* roleOf(const DEVICE_OBJECT& device) {
    return static_cast<const DeviceExtension*>(device.DeviceExtension)->role;
}

// Makes a device object with a role. The role stays the caller's and outlives the device; name may
// be null.
inline NTSTATUS makeDevice(DRIVER_OBJECT* driver, Role& role, UNICODE_STRING* name,
                           ULONG characteristics, DEVICE_OBJECT*& device) {
    const NTSTATUS status = ::IoCreateDevice(driver, sizeof(DeviceExtension), name,
                                             FILE_DEVICE_UNKNOWN, characteristics, FALSE, &device);
    if (NT_SUCCESS(status)) static_cast<DeviceExtension*>(device->DeviceExtension)->role = &role;
    return status;
}

}  // namespace quillsim

#endif
