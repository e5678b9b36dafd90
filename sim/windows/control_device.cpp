#include <cstring>

#include "sim/windows/bus.h"

namespace quillsim {
namespace {

UNICODE_STRING textOf(const wchar_t* text) {
    UNICODE_STRING string;
    ::RtlInitUnicodeString(&string, text);
    return string;
}

UNICODE_STRING deviceName() { return textOf(L"\\Device\\quillsim"); }
UNICODE_STRING linkName() { return textOf(L"\\DosDevices\\quillsim"); }

// An answer on its way into a buffer that may be too small for it.
struct AnswerBuffer {
    char* bytes;
    std::size_t room;
    std::size_t size = 0;  // of the whole answer

    static bool take(void* context, std::string_view piece) {
        auto& self = *static_cast<AnswerBuffer*>(context);
        if (self.size < self.room) {
            const std::size_t left = self.room - self.size;
            std::memcpy(self.bytes + self.size, piece.data(),
                        piece.size() < left ? piece.size() : left);
        }
        self.size += piece.size();
        return self.size <= self.room;
    }
};

}  // namespace

NTSTATUS ControlDevice::make(DRIVER_OBJECT* driver) {
    UNICODE_STRING name = deviceName();
    UNICODE_STRING link = linkName();
    const NTSTATUS status = makeDevice(driver, *this, &name, 0, device_);
    if (!NT_SUCCESS(status)) return status;
    device_->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
    return ::IoCreateSymbolicLink(&link, &name);
}

void ControlDevice::remove() {
    if (device_ == nullptr) return;
    UNICODE_STRING link = linkName();
    ::IoDeleteSymbolicLink(&link);
    // A program may have it open still.
    static_cast<DeviceExtension*>(device_->DeviceExtension)->role = nullptr;
    ::IoDeleteDevice(device_);
    device_ = nullptr;
}

NTSTATUS ControlDevice::serve(IRP& irp, IO_STACK_LOCATION& stack) {
    switch (stack.MajorFunction) {
        case IRP_MJ_CREATE:
            return complete(irp, STATUS_SUCCESS);
        case IRP_MJ_CLEANUP:
        case IRP_MJ_CLOSE:  // not every system has told of the cleanup before
            bus_.closed(*stack.FileObject);
            return complete(irp, STATUS_SUCCESS);
        case IRP_MJ_DEVICE_CONTROL:
            return runLine(irp, stack);
        default:
            return Role::serve(irp, stack);
    }
}

NTSTATUS ControlDevice::runLine(IRP& irp, const IO_STACK_LOCATION& stack) {
    const auto& parameters = stack.Parameters.DeviceIoControl;
    if (parameters.IoControlCode != kControlRequest) {
        return complete(irp, STATUS_INVALID_DEVICE_REQUEST);
    }
    const std::size_t length = parameters.InputBufferLength;
    if (length > kLongestLine) return complete(irp, STATUS_INVALID_PARAMETER);
    // The answer goes where the line is.
    auto* const line =
        static_cast<char*>(::ExAllocatePoolWithTag(PagedPool, kLongestLine, kPoolTag));
    if (line == nullptr) return complete(irp, STATUS_INSUFFICIENT_RESOURCES);
    auto* const buffer = static_cast<char*>(irp.AssociatedIrp.SystemBuffer);
    std::memcpy(line, buffer, length);

    AnswerBuffer answer{buffer, parameters.OutputBufferLength};
    TextWriter out(&AnswerBuffer::take, &answer);
    bus_.runLine(*stack.FileObject, {line, length}, out);
    ::ExFreePoolWithTag(line, kPoolTag);

    if (answer.size > answer.room) return complete(irp, STATUS_BUFFER_OVERFLOW, answer.room);
    return complete(irp, STATUS_SUCCESS, answer.size);
}

}  // namespace quillsim
