// Offers one adapter to hosts: its socket in adapters/, and the connections on it. A connection is
// a host that has the device open; each message on it is one control request, and each completion
// is one message back. Runs on the event loop's thread.
#ifndef QUILLSIM_SERVER_ADAPTER_PORT_H
#define QUILLSIM_SERVER_ADAPTER_PORT_H

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/capture_file.h"
#include "sim/model/adapter.h"
#include "sim/posix/event_loop.h"
#include "sim/posix/runtime_directory.h"

namespace quillsim {

class AdapterPort {
   public:
    // All references stay the caller's and outlive the port; capture gets what is sent either way.
    // The port starts unplugged.
    AdapterPort(EventLoop& loop, const RuntimeDirectory& directory, std::string name,
                Adapter& adapter, CapturePoint capture);
    AdapterPort(const AdapterPort&) = delete;
    AdapterPort& operator=(const AdapterPort&) = delete;
    ~AdapterPort() { unplug(); }

    // Makes the socket; throws std::system_error.
    void plug();
    // Removes the socket and closes every connection.
    void unplug();

   private:
    using Key = std::uint64_t;

    struct Connection {
        FileDescriptor socket;
        EventLoop::WatchId watch = 0;
        std::optional<EventLoop::TimerId> due;  // set while a request takes its time
        Delivery delivery = Delivery::completion;
        std::vector<std::uint8_t> completion;
        unsigned times = 1;         // that it is sent
        std::uint32_t request = 0;  // the one that is not answered yet, by its number; 0 for none
    };

    void acceptAll();
    void settleHangups();
    void onEvents(Key key, std::uint32_t events);
    void receive(Key key, Connection& connection);
    void serve(Key key, Connection& connection, std::span<const std::uint8_t> message);
    void finish(Key key);
    void drop(Key key);
    void capture(PacketKind kind, Key key, std::span<const std::uint8_t> message) const;

    EventLoop& loop_;
    const RuntimeDirectory& directory_;
    std::string name_;
    Adapter& adapter_;
    CapturePoint capture_;
    FileDescriptor listener_;
    EventLoop::WatchId listenerWatch_ = 0;
    std::map<Key, Connection> connections_;
    Key nextKey_ = 1;
    std::vector<std::uint8_t> message_;
    std::vector<std::uint8_t> reply_;
};

}  // namespace quillsim

#endif
