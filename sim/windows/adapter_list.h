// The adapters that Windows lists, simulated or not.
//
// Threads: the function keeps no state.
#ifndef WRENLINK_SIM_WINDOWS_ADAPTER_LIST_H
#define WRENLINK_SIM_WINDOWS_ADAPTER_LIST_H

#include <string>
#include <vector>

namespace quillsim {

// The device paths of the adapters that are present, in the system's order; none when it cannot
// tell.
std::vector<std::string> listAdapters();

// Whether a device path is that of an adapter of the simulator.
bool isSimulated(const std::string& path);

}  // namespace quillsim

#endif
