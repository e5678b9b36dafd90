// What hosts do, step by step, for tests in which calls below the library fail: each step with what
// a host may see of it. Together the steps use every export. One thread.
#ifndef WRENLINK_TESTS_EXPORTS_FAULT_SCENARIOS_H
#define WRENLINK_TESTS_EXPORTS_FAULT_SCENARIOS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/exports/host.h"
#include "tests/support/simulator.h"
#include "wrenlink/library.h"

namespace wrenlink::test {

// A host and the library that it loads. Only calls of the library are made in a fault window.
struct FaultyHost {
    Simulator simulator{{100}, "1.9"};
    bool legacy = false;    // uses the exports without "stream_" where there are both
    const char* key = "0";  // under which it selects the adapter
    int turn = 0;           // what it sets differs from turn to turn
    std::optional<Library> library;
    std::uint32_t id = SPIFNS_NO_STREAM;

    // Closes the stream and unloads the library.
    void end();
};

struct Step {
    // What the step needs beyond exchanges.
    enum class Needs { nothing, delays, adapter, errorStore };

    const char* what;
    std::string (*run)(FaultyHost& host);  // what the host sees
    const char* right;
    const char* failed = "1";  // after a failed exchange, whose error is stored
    const char* lost = "1";    // without the memory for more
    const char* words = "";    // what the stored error says behind the exchange's own text
    Needs needs = Needs::nothing;
    bool always = false;  // done after a failure too
};

struct FaultScenario {
    const char* name;
    std::size_t prepared;  // the first steps, which nothing disturbs
    std::vector<Step> steps;
    const char* mapFile = nullptr;
    const char* key = "0";

    friend void PrintTo(const FaultScenario& scenario, std::ostream* out) { *out << scenario.name; }
};

extern const std::vector<FaultScenario> kFaultScenarios;

}  // namespace wrenlink::test

#endif
