// Simulated adapters of the tool's own, for those who have none at hand.
//
// Threads: used by the main thread, once, before a stream is open.
#ifndef WREN_SIMULATION_H
#define WREN_SIMULATION_H

#include <memory>
#include <string>

namespace wren {

// Offers adapters 0, 1, ... with ids 100, 200, ..., and no others, to the library of this process
// for as long as what is returned lives. Unless the name is empty, what travels to and from them is
// captured in a file. May run the tool anew, with main()'s arguments. Throws Failure.
std::shared_ptr<void> simulate(unsigned adapters, const std::string& captureFile, char** argv);

}  // namespace wren

#endif
