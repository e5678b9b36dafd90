#include "sim/windows/request_queue.h"

#include "sim/windows/role.h"

namespace quillsim {
namespace {

constexpr std::uint64_t kPerSecond = 1'000'000;

// Microseconds since some moment; never goes back.
std::uint64_t now() {
    LARGE_INTEGER frequency;
    const auto count = static_cast<std::uint64_t>(::KeQueryPerformanceCounter(&frequency).QuadPart);
    const auto perSecond = static_cast<std::uint64_t>(frequency.QuadPart);
    return count / perSecond * kPerSecond + count % perSecond * kPerSecond / perSecond;
}

// The queue's notes in a request: the queue, when the request is due, and whether it is kept though
// it is cancelled.
void note(IRP& irp, RequestQueue* queue, std::uint64_t due, bool kept) {
    irp.Tail.Overlay.DriverContext[0] = queue;
    irp.Tail.Overlay.DriverContext[1] = reinterpret_cast<void*>(due);
    irp.Tail.Overlay.DriverContext[2] = kept ? &irp : nullptr;
}
RequestQueue& queueOf(const IRP& irp) {
    return *static_cast<RequestQueue*>(irp.Tail.Overlay.DriverContext[0]);
}
std::uint64_t dueOf(const IRP& irp) {
    return reinterpret_cast<std::uint64_t>(irp.Tail.Overlay.DriverContext[1]);
}
bool isKept(const IRP& irp) { return irp.Tail.Overlay.DriverContext[2] != nullptr; }

IRP& requestOf(LIST_ENTRY* link) { return *CONTAINING_RECORD(link, IRP, Tail.Overlay.ListEntry); }

}  // namespace

RequestQueue::RequestQueue() {
    ::KeInitializeSpinLock(&lock_);
    ::InitializeListHead(&requests_);
    ::KeInitializeEvent(&wake_, SynchronizationEvent, FALSE);
}

NTSTATUS RequestQueue::start() {
    HANDLE handle = nullptr;
    NTSTATUS status = ::PsCreateSystemThread(&handle, THREAD_ALL_ACCESS, nullptr, nullptr, nullptr,
                                             &RequestQueue::threadMain, this);
    if (!NT_SUCCESS(status)) return status;
    status = ::ObReferenceObjectByHandle(handle, THREAD_ALL_ACCESS, nullptr, KernelMode, &thread_,
                                         nullptr);
    ::ZwClose(handle);
    return status;
}

void RequestQueue::stop() {
    if (thread_ != nullptr) {
        stopping_ = true;
        ::KeSetEvent(&wake_, IO_NO_INCREMENT, FALSE);
        ::KeWaitForSingleObject(thread_, Executive, KernelMode, FALSE, nullptr);
        ::ObDereferenceObject(thread_);
        thread_ = nullptr;
    }
    endAll(nullptr, nullptr, STATUS_CANCELLED);
}

NTSTATUS RequestQueue::hold(IRP& irp, std::uint64_t microseconds, bool kept) {
    note(irp, this, microseconds == kNever ? kNever : now() + microseconds, kept);
    ::IoMarkIrpPending(&irp);
    bool cancelled = false;
    {
        const SpinGuard guard(lock_);
        ::InsertTailList(&requests_, &irp.Tail.Overlay.ListEntry);
        if (!kept) IoSetCancelRoutine(&irp, &RequestQueue::cancel);
        // Cancelled before it had a routine; if that is gone again, it runs and takes the request.
        cancelled = irp.Cancel && IoSetCancelRoutine(&irp, nullptr) != nullptr;
        if (cancelled) ::RemoveEntryList(&irp.Tail.Overlay.ListEntry);
    }
    if (cancelled) {
        complete(irp, STATUS_CANCELLED);
    } else {
        ::KeSetEvent(&wake_, IO_NO_INCREMENT, FALSE);
    }
    return STATUS_PENDING;
}

void RequestQueue::cancel(DEVICE_OBJECT*, IRP* irp) {
    ::IoReleaseCancelSpinLock(irp->CancelIrql);
    {
        const SpinGuard guard(queueOf(*irp).lock_);
        ::RemoveEntryList(&irp->Tail.Overlay.ListEntry);
    }
    complete(*irp, STATUS_CANCELLED);
}

template <typename Predicate>
void RequestQueue::endWhere(Predicate picks, const NTSTATUS* status) {
    LIST_ENTRY taken;
    ::InitializeListHead(&taken);
    {
        const SpinGuard guard(lock_);
        for (LIST_ENTRY* link = requests_.Flink; link != &requests_;) {
            IRP& irp = requestOf(link);
            link = link->Flink;
            if (!picks(irp)) continue;
            // Without a cancel routine, the routine is about to run and takes the request itself.
            if (!isKept(irp) && IoSetCancelRoutine(&irp, nullptr) == nullptr) continue;
            ::RemoveEntryList(&irp.Tail.Overlay.ListEntry);
            ::InsertTailList(&taken, &irp.Tail.Overlay.ListEntry);
        }
    }
    while (!::IsListEmpty(&taken)) {
        IRP& irp = requestOf(::RemoveHeadList(&taken));
        if (status != nullptr) {
            complete(irp, *status);
        } else {
            complete(irp, irp.IoStatus.Status, irp.IoStatus.Information);
        }
    }
}

void RequestQueue::endAll(const DEVICE_OBJECT* device, const FILE_OBJECT* closed, NTSTATUS status) {
    const auto isTheirs = [device, closed](IRP& irp) {
        const IO_STACK_LOCATION& stack = *IoGetCurrentIrpStackLocation(&irp);
        return (device == nullptr || stack.DeviceObject == device) &&
               (closed == nullptr || (stack.FileObject == closed && !isKept(irp)));
    };
    endWhere(isTheirs, &status);
}

void RequestQueue::endKept(const DEVICE_OBJECT* device) {
    const auto isTheirs = [device](IRP& irp) {
        return isKept(irp) && IoGetCurrentIrpStackLocation(&irp)->DeviceObject == device;
    };
    endWhere(isTheirs, nullptr);
}

std::uint64_t RequestQueue::earliest() {
    const SpinGuard guard(lock_);
    std::uint64_t due = kNever;
    for (LIST_ENTRY* link = requests_.Flink; link != &requests_; link = link->Flink) {
        if (dueOf(requestOf(link)) < due) due = dueOf(requestOf(link));
    }
    return due;
}

void RequestQueue::threadMain(void* queue) {
    static_cast<RequestQueue*>(queue)->run();
    ::PsTerminateSystemThread(STATUS_SUCCESS);
}

void RequestQueue::run() {
    while (!stopping_) {
        const std::uint64_t time = now();
        endWhere([time](const IRP& irp) { return dueOf(irp) <= time; }, nullptr);

        const std::uint64_t next = earliest();
        // Negative for a span from now on, in units of 100 ns.
        LARGE_INTEGER span;
        span.QuadPart = next > time ? -10 * static_cast<LONGLONG>(next - time) : 0;
        ::KeWaitForSingleObject(&wake_, Executive, KernelMode, FALSE,
                                next == kNever ? nullptr : &span);
    }
}

}  // namespace quillsim
