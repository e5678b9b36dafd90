// Sends command lines to the simulator that serves a runtime directory. One thread at a time uses a
// client.
#ifndef QUILLSIM_SERVER_CONTROL_CLIENT_H
#define QUILLSIM_SERVER_CONTROL_CLIENT_H

#include <string>

#include "sim/posix/file_descriptor.h"

namespace quillsim {

class ControlClient {
   public:
    // Connects. Throws as connectControl().
    explicit ControlClient(const std::string& runtimeDirectory);

    // Carries out a command line and returns the lines that it answers. Throws std::runtime_error
    // with the simulator's reason, std::system_error when the simulator does not answer.
    std::string run(const std::string& line);

   private:
    FileDescriptor socket_;
};

}  // namespace quillsim

#endif
