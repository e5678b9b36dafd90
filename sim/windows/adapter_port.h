// Offers one adapter to hosts: a child device of the bus with a device interface, which comes and
// goes with the adapter. The port lasts as long as the bus, and so does the adapter's state.
#ifndef WRENLINK_SIM_WINDOWS_ADAPTER_PORT_H
#define WRENLINK_SIM_WINDOWS_ADAPTER_PORT_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "sim/model/adapter.h"
#include "sim/windows/request_queue.h"
#include "sim/windows/role.h"

namespace quillsim {

// What the ports of one bus share; outlives them.
struct PortContext {
    DRIVER_OBJECT* driver = nullptr;
    DEVICE_OBJECT* busDevice = nullptr;  // the one below the bus, which stands for it
    PassiveLock lock;                    // guards the adapters, the ports and the reply
    RequestQueue queue;
    std::array<std::uint8_t, kReplyRoom> reply;
};

// Functions marked "locked" want the context's lock held; the others must not be called with it.
class AdapterPort final : public Role {
   public:
    AdapterPort() = default;
    AdapterPort(const AdapterPort&) = delete;
    AdapterPort& operator=(const AdapterPort&) = delete;
    ~AdapterPort() { destroyInPool(adapter_); }

    // Once, before anything else.
    void attach(PortContext& context, std::size_t number) {
        context_ = &context;
        number_ = number;
    }

    // Locked. Puts the adapter into its state at power-on, plugged in, and cuts off the hosts that
    // have it open; false without memory.
    bool powerOn(std::uint32_t id);
    // Locked. Null before the first power-on.
    Adapter* adapter() { return adapter_; }
    // Locked. Offers the adapter to hosts, or takes it away, which ends their requests. The bus
    // must be told afterwards that its children have changed.
    void offer(bool offered);
    // Locked. Whether requests that take their time are kept until then, also when they are
    // cancelled or their file is closed. Those that are kept end when that is over.
    void keepCancelled(bool kept);

    // Locked. The child device to report: made when the adapter is offered and has none. Null when
    // the adapter is away, or when its former device has not left yet.
    DEVICE_OBJECT* childDevice();
    // Locked. For the end of the bus.
    void deleteChild();

    NTSTATUS serve(IRP& irp, IO_STACK_LOCATION& stack) override;

   private:
    NTSTATUS opened(FILE_OBJECT& file);
    void closed(const FILE_OBJECT& file);
    bool isCurrent(const FILE_OBJECT& file) const;
    NTSTATUS control(IRP& irp, const IO_STACK_LOCATION& stack);
    NTSTATUS deliver(IRP& irp, const Answer& answer, std::size_t capacity);

    NTSTATUS servePnp(IRP& irp, const IO_STACK_LOCATION& stack);
    NTSTATUS startChild();
    void removeChild();
    NTSTATUS queryId(IRP& irp, BUS_QUERY_ID_TYPE type) const;
    // Ends the requests of all hosts and lets what they have open work no more.
    void cutHostsOff();
    // Enables the interface just while the adapter is offered.
    void showInterface();
    void enableInterface(bool enable);

    PortContext* context_ = nullptr;
    std::size_t number_ = 0;
    Adapter* adapter_ = nullptr;
    // What a file object was opened in; one of before the latest power-on or unplugging is dead.
    // Never 0, which a file object has that was not opened.
    ULONG_PTR session_ = 1;
    bool offered_ = false;
    bool keepsCancelled_ = false;

    DEVICE_OBJECT* child_ = nullptr;
    bool leaving_ = false;   // no longer reported, and not yet removed
    UNICODE_STRING link_{};  // of the started child's interface
    bool shown_ = false;     // the interface is enabled
};

}  // namespace quillsim

#endif
