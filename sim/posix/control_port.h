// The control socket: command lines in, answers out. Any number of lines may follow one another on
// a connection; the answer to each ends in a line that is "ok" or begins with "error: ". Runs on
// the event loop's thread, between requests, never during one.
#ifndef QUILLSIM_SERVER_CONTROL_PORT_H
#define QUILLSIM_SERVER_CONTROL_PORT_H

#include <cstdint>
#include <map>
#include <string>

#include "sim/model/command.h"
#include "sim/posix/event_loop.h"
#include "sim/posix/runtime_directory.h"

namespace quillsim {

class ControlPort {
   public:
    // Makes the socket; throws std::system_error. All references outlive the port.
    ControlPort(EventLoop& loop, const RuntimeDirectory& directory, const Bench& bench);
    ControlPort(const ControlPort&) = delete;
    ControlPort& operator=(const ControlPort&) = delete;
    // Removes the socket.
    ~ControlPort();

   private:
    using Key = std::uint64_t;

    struct Connection {
        FileDescriptor socket;
        EventLoop::WatchId watch = 0;
        std::string input;
        std::string output;
        bool ended = false;  // the peer sends no more
    };

    void acceptAll();
    void onEvents(Key key);
    bool receive(Connection& connection);
    void runLines(Connection& connection);
    static bool send(Connection& connection);
    void drop(Key key);

    EventLoop& loop_;
    const RuntimeDirectory& directory_;
    const Bench& bench_;
    FileDescriptor listener_;
    EventLoop::WatchId listenerWatch_ = 0;
    std::map<Key, Connection> connections_;
    Key nextKey_ = 1;
};

}  // namespace quillsim

#endif
