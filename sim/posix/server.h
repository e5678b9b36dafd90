// The simulator as a process: adapters, their sockets and the control socket, served until a signal
// asks it to end.
#ifndef QUILLSIM_SERVER_SERVER_H
#define QUILLSIM_SERVER_SERVER_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/capture_file.h"
#include "sim/model/adapter.h"
#include "sim/model/command.h"
#include "sim/posix/adapter_port.h"
#include "sim/posix/control_port.h"
#include "sim/posix/event_loop.h"
#include "sim/posix/runtime_directory.h"

namespace quillsim {

using Adapters = std::vector<std::unique_ptr<Adapter>>;

struct ServerOptions {
    std::string runtimeDirectory;
    DirectoryAccess access;
    std::string captureFile;  // empty for none
    Adapters adapters;
};

class Server {
   public:
    // Every adapter can be opened once the server is made. Throws std::runtime_error or one of its
    // kin, having removed what it made.
    explicit Server(ServerOptions options);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    // Removes the sockets.
    ~Server() = default;

    // Serves until SIGTERM or SIGINT; or until a program ends, which then gets these. Returns
    // whether everything was captured that was to be.
    bool run(pid_t program = 0);

   private:
    // For the adapters' commands.
    static bool plug(void* context, std::size_t adapter, bool plugged);
    void addPort(Adapter& adapter);

    EventLoop loop_;
    // Opened while signals still end the process, since a named pipe may wait for long.
    std::optional<CaptureFile> capture_;
    RuntimeDirectory directory_;
    FileDescriptor signals_;
    Adapters adapters_;
    std::vector<Adapter*> benchAdapters_;
    Bench bench_;
    std::vector<std::unique_ptr<AdapterPort>> ports_;
    std::unique_ptr<ControlPort> control_;
};

}  // namespace quillsim

#endif
