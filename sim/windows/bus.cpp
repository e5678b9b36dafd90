#include "sim/windows/bus.h"

namespace quillsim {
namespace {

constexpr std::size_t kIdStep = 100;

bool readCount(std::string_view& text, std::uint64_t highest, std::size_t& value) {
    std::uint64_t number = 0;
    if (!readNumber(nextWord(text), highest, number)) return false;
    value = static_cast<std::size_t>(number);
    return true;
}

}  // namespace

Bus::Bus(DRIVER_OBJECT* driver, DEVICE_OBJECT* below) {
    context_.driver = driver;
    context_.busDevice = below;
    for (std::size_t i = 0; i < ports_.size(); ++i) ports_[i].attach(context_, i);
}

NTSTATUS Bus::add(DRIVER_OBJECT* driver, DEVICE_OBJECT* below) {
    Bus* const bus = makeInPool<Bus>(driver, below);
    if (bus == nullptr) return STATUS_INSUFFICIENT_RESOURCES;
    const NTSTATUS status = bus->setUp();
    return NT_SUCCESS(status) ? status : bus->tearDown(status);
}

NTSTATUS Bus::setUp() {
    NTSTATUS status = makeDevice(context_.driver, *this, nullptr, 0, device_);
    if (!NT_SUCCESS(status)) return status;
    next_ = ::IoAttachDeviceToDeviceStack(device_, context_.busDevice);
    if (next_ == nullptr) return STATUS_NO_SUCH_DEVICE;
    status = context_.queue.start();
    if (!NT_SUCCESS(status)) return status;
    // Fails while there is another bus.
    status = control_.make(context_.driver);
    if (!NT_SUCCESS(status)) return status;
    device_->Flags |= next_->Flags & DO_POWER_PAGABLE;
    device_->Flags &= ~static_cast<ULONG>(DO_DEVICE_INITIALIZING);
    return status;
}

NTSTATUS Bus::tearDown(NTSTATUS status) {
    control_.remove();
    context_.queue.stop();
    for (AdapterPort& port : ports_) port.deleteChild();
    if (next_ != nullptr) ::IoDetachDevice(next_);
    if (device_ != nullptr) ::IoDeleteDevice(device_);
    destroyInPool(this);
    return status;
}

NTSTATUS Bus::serve(IRP& irp, IO_STACK_LOCATION& stack) {
    switch (stack.MajorFunction) {
        case IRP_MJ_PNP:
            return servePnp(irp, stack);
        case IRP_MJ_POWER:
            ::PoStartNextPowerIrp(&irp);
            IoSkipCurrentIrpStackLocation(&irp);
            return ::PoCallDriver(next_, &irp);
        default:
            return passOn(irp);
    }
}

NTSTATUS Bus::passOn(IRP& irp) {
    IoSkipCurrentIrpStackLocation(&irp);
    return ::IoCallDriver(next_, &irp);
}

NTSTATUS Bus::servePnp(IRP& irp, const IO_STACK_LOCATION& stack) {
    switch (stack.MinorFunction) {
        case IRP_MN_QUERY_DEVICE_RELATIONS:
            if (stack.Parameters.QueryDeviceRelations.Type != BusRelations) return passOn(irp);
            return reportChildren(irp);
        case IRP_MN_REMOVE_DEVICE:
            irp.IoStatus.Status = STATUS_SUCCESS;
            return tearDown(passOn(irp));
        case IRP_MN_START_DEVICE:
        case IRP_MN_SURPRISE_REMOVAL:
        case IRP_MN_QUERY_REMOVE_DEVICE:
        case IRP_MN_CANCEL_REMOVE_DEVICE:
        case IRP_MN_QUERY_STOP_DEVICE:
        case IRP_MN_CANCEL_STOP_DEVICE:
        case IRP_MN_STOP_DEVICE:
            irp.IoStatus.Status = STATUS_SUCCESS;
            return passOn(irp);
        default:
            return passOn(irp);
    }
}

NTSTATUS Bus::reportChildren(IRP& irp) {
    constexpr std::size_t kSize =
        sizeof(DEVICE_RELATIONS) + (kMostPorts - 1) * sizeof(DEVICE_OBJECT*);
    auto* const relations =
        static_cast<DEVICE_RELATIONS*>(::ExAllocatePoolWithTag(PagedPool, kSize, kPoolTag));
    if (relations == nullptr) return complete(irp, STATUS_INSUFFICIENT_RESOURCES);
    relations->Count = 0;
    {
        const PassiveGuard guard(context_.lock);
        for (AdapterPort& port : ports_) {
            DEVICE_OBJECT* const child = port.childDevice();
            if (child == nullptr) continue;
            // The system releases each of them.
            ::ObReferenceObject(child);
            relations->Objects[relations->Count++] = child;
        }
    }
    irp.IoStatus.Status = STATUS_SUCCESS;
    irp.IoStatus.Information = reinterpret_cast<ULONG_PTR>(relations);
    return passOn(irp);
}

void Bus::runLine(const FILE_OBJECT& file, std::string_view line, TextWriter& out) {
    const PassiveGuard guard(context_.lock);
    std::string_view arguments = line;
    const std::string_view verb = nextWord(arguments);
    std::string_view failure;
    if (verb == "adapters") {
        failure = setAdapters(arguments);
    } else if (verb == "lend") {
        failure = lend(file, arguments);
    } else if (verb == "keep") {
        failure = keepCancelled(arguments);
    } else {
        if (verb == "help") out.text("adapters COUNT\nlend COUNT\nkeep ADAPTER yes|no\n");
        const Range view = inView();
        runCommand({{&adapters_[view.first], view.count}, &Bus::plug, this}, line, out);
        return;
    }
    if (failure.empty()) {
        out.text("ok").endLine();
    } else {
        out.text("error: ").text(failure).endLine();
    }
}

std::string_view Bus::setAdapters(std::string_view arguments) {
    if (lender_ != nullptr) return "a program has adapters of its own now";
    const std::string_view failure = powerOn(own_, arguments, kMostAdapters);
    offerInView();
    return failure;
}

std::string_view Bus::lend(const FILE_OBJECT& file, std::string_view arguments) {
    if (lender_ != nullptr && lender_ != &file) return kLentAlready;
    const std::string_view failure = powerOn(lent_, arguments, kMostLent);
    if (failure.empty()) lender_ = &file;
    offerInView();
    return failure;
}

void Bus::closed(const FILE_OBJECT& file) {
    const PassiveGuard guard(context_.lock);
    if (lender_ != &file) return;
    lender_ = nullptr;
    offerInView();
}

std::string_view Bus::powerOn(Range& range, std::string_view count, std::size_t most) {
    if (!readCount(count, most, range.count)) return "not a number in range";
    for (std::size_t i = 0; i < range.count; ++i) {
        AdapterPort& port = ports_[range.first + i];
        if (!port.powerOn(static_cast<std::uint32_t>(kIdStep * (i + 1)))) {
            range.count = i;
            return "not enough memory";
        }
        adapters_[range.first + i] = port.adapter();
    }
    return {};
}

void Bus::offerInView() {
    const Range view = inView();
    for (std::size_t i = 0; i < ports_.size(); ++i) {
        const bool isInView = i >= view.first && i < view.first + view.count;
        ports_[i].offer(isInView && adapters_[i]->plugged);
    }
    tellOfChange();
}

std::string_view Bus::keepCancelled(std::string_view arguments) {
    const Range view = inView();
    std::size_t adapter = 0;
    if (!readCount(arguments, kMostAdapters, adapter) || adapter >= view.count)
        return "no such adapter";
    const std::string_view answer = nextWord(arguments);
    if (answer != "yes" && answer != "no") return "not yes or no";
    ports_[view.first + adapter].keepCancelled(answer == "yes");
    return {};
}

bool Bus::plug(void* bus, std::size_t adapter, bool plugged) {
    auto& self = *static_cast<Bus*>(bus);
    self.ports_[self.inView().first + adapter].offer(plugged);
    self.tellOfChange();
    return true;
}

}  // namespace quillsim
