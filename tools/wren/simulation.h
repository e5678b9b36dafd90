// Simulated adapters of the tool's own, for those who have none at hand. The library of this
// process finds them and no others while a Simulation lives.
//
// Threads: used by the main thread; one exists at a time, and no stream is open when it is made.
#ifndef WREN_SIMULATION_H
#define WREN_SIMULATION_H

#include <string>

namespace wren {

class Simulation {
   public:
    // Starts adapters 0, 1, ... with ids 100, 200, ... and, unless the name is empty, captures what
    // travels to and from them in a file. Throws Failure when that fails.
    Simulation(unsigned adapters, const std::string& captureFile);
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;
    // Ends them, and leaves nothing behind.
    ~Simulation();

    // Ends them. Throws Failure when the capture is not complete.
    void finish();

   private:
    struct Native;
    Native* native_;
};

}  // namespace wren

#endif
