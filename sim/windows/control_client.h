// Sends command lines to the simulator's driver. One thread at a time uses a client.
#ifndef WRENLINK_SIM_WINDOWS_CONTROL_CLIENT_H
#define WRENLINK_SIM_WINDOWS_CONTROL_CLIENT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quillsim {

class ControlClient {
   public:
    // Opens the driver's control device. Check isOpen().
    ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;
    ~ControlClient();

    bool isOpen() const;
    // Carries out a command line and returns the lines that it answers. Throws std::runtime_error
    // with the driver's reason, std::system_error when the driver does not answer.
    std::string run(std::string_view line);
    // How many adapters are plugged in, be they listed yet or not. Throws as run() does.
    std::size_t offered();

   private:
    void* device_;
    std::vector<char> answer_;
};

}  // namespace quillsim

#endif
