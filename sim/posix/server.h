// The simulator as a process: adapters, their sockets and the control socket, served until a signal
// asks it to end.
#ifndef QUILLSIM_SERVER_SERVER_H
#define QUILLSIM_SERVER_SERVER_H

#include <cstdint>
#include <fstream>
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

struct AdapterOptions {
    std::string name;  // of the socket
    std::uint32_t id = 0;
    std::uint16_t firmware = 0x0109;
    std::string memoryFile;  // little-endian words from address 0 on; empty for none
    bool xapStopped = false;
    std::uint64_t answerMicroseconds = 0;
};

struct ServerOptions {
    std::string runtimeDirectory;
    DirectoryAccess access;
    std::string logFile;      // empty for none
    std::string captureFile;  // empty for none
    std::vector<AdapterOptions> adapters;
};

class Server {
   public:
    // Every adapter can be opened once the server is made. Throws std::runtime_error or one of its
    // kin, having removed what it made.
    explicit Server(const ServerOptions& options);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    // Removes the sockets.
    ~Server() = default;

    // Serves until SIGTERM or SIGINT.
    void run() { loop_.run(); }

   private:
    // For the adapters' commands.
    static bool plug(void* context, std::size_t adapter, bool plugged);
    static bool letOpen(void* context, std::size_t adapter, bool openable);
    void addAdapter(const AdapterOptions& options);

    EventLoop loop_;
    // Opened while signals still end the process, since a named pipe may wait for long.
    std::optional<CaptureFile> capture_;
    RuntimeDirectory directory_;
    FileDescriptor signals_;
    std::ofstream log_;
    std::vector<std::unique_ptr<Adapter>> adapters_;
    std::vector<Adapter*> benchAdapters_;
    Bench bench_;
    std::vector<std::unique_ptr<AdapterPort>> ports_;
    std::unique_ptr<ControlPort> control_;
};

}  // namespace quillsim

#endif
