// Puts the simulator's driver into the running system and takes it out again. Functions throw
// std::system_error; they need the rights of an administrator.
#ifndef WRENLINK_SIM_WINDOWS_INSTALLATION_H
#define WRENLINK_SIM_WINDOWS_INSTALLATION_H

#include <filesystem>

namespace quillsim {

// Makes the bus device and installs the driver that an INF file describes for it.
void installDriver(const std::filesystem::path& inf);

// Removes the bus device with everything on it, and the driver; does nothing without them.
void removeDriver();

}  // namespace quillsim

#endif
