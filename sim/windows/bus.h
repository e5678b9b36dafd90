// The bus that the adapters hang on, and the control device beside it. One bus exists at a time.
#ifndef WRENLINK_SIM_WINDOWS_BUS_H
#define WRENLINK_SIM_WINDOWS_BUS_H

#include <array>
#include <cstddef>
#include <string_view>

#include "sim/model/command.h"
#include "sim/windows/adapter_port.h"
#include "sim/windows/control_protocol.h"

namespace quillsim {

class Bus;

// The device by which programs send command lines.
class ControlDevice final : public Role {
   public:
    explicit ControlDevice(Bus& bus) : bus_(bus) {}
    ControlDevice(const ControlDevice&) = delete;
    ControlDevice& operator=(const ControlDevice&) = delete;
    ~ControlDevice() { remove(); }

    NTSTATUS make(DRIVER_OBJECT* driver);
    void remove();

    NTSTATUS serve(IRP& irp, IO_STACK_LOCATION& stack) override;

   private:
    NTSTATUS runLine(IRP& irp, const IO_STACK_LOCATION& stack);

    Bus& bus_;
    DEVICE_OBJECT* device_ = nullptr;
};

class Bus final : public Role {
   public:
    // Sets a bus up on the device that the system made for it; removing that device ends the bus.
    static NTSTATUS add(DRIVER_OBJECT* driver, DEVICE_OBJECT* below);

    // For add().
    Bus(DRIVER_OBJECT* driver, DEVICE_OBJECT* below);
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    NTSTATUS serve(IRP& irp, IO_STACK_LOCATION& stack) override;

    // Carries out a command line, which came through a file object: one of the adapters' commands,
    // or the bus's own.
    void runLine(const FILE_OBJECT& file, std::string_view line, TextWriter& out);
    // A program has closed the control device. What was lent to it is there no more.
    void closed(const FILE_OBJECT& file);

   private:
    NTSTATUS setUp();
    NTSTATUS tearDown(NTSTATUS status);
    NTSTATUS passOn(IRP& irp);
    NTSTATUS servePnp(IRP& irp, const IO_STACK_LOCATION& stack);
    NTSTATUS reportChildren(IRP& irp);
    void tellOfChange() { ::IoInvalidateDeviceRelations(context_.busDevice, BusRelations); }

    // The bus's own commands; they return why they fail, or nothing.
    std::string_view setAdapters(std::string_view arguments);
    std::string_view lend(const FILE_OBJECT& file, std::string_view arguments);
    std::string_view keepCancelled(std::string_view arguments);

    // Places among the ports: those that are there for good, and those lent to one program, which
    // take the place of the others meanwhile.
    struct Range {
        std::size_t first;
        std::size_t count;
    };
    static constexpr std::size_t kMostPorts = kMostAdapters + kMostLent;
    Range inView() const { return lender_ == nullptr ? own_ : lent_; }
    std::string_view powerOn(Range& range, std::string_view count, std::size_t most);
    // Offers what is in view and plugged in, and nothing else.
    void offerInView();
    // For the adapters' commands.
    static bool plug(void* bus, std::size_t adapter, bool plugged);

    PortContext context_;
    ControlDevice control_{*this};
    DEVICE_OBJECT* device_ = nullptr;
    DEVICE_OBJECT* next_ = nullptr;  // where requests are passed on to
    std::array<AdapterPort, kMostPorts> ports_;
    std::array<Adapter*, kMostPorts> adapters_{};
    Range own_{0, 0};
    Range lent_{kMostAdapters, 0};
    const FILE_OBJECT* lender_ = nullptr;  // by which they were lent
};

}  // namespace quillsim

#endif
