// Simulated adapters for a test, in a runtime and with documents of their own; the library of this
// process and of its children finds these and no others. One simulator exists at a time; one thread
// uses it.
#ifndef WRENLINK_TESTS_SUPPORT_SIMULATOR_H
#define WRENLINK_TESTS_SUPPORT_SIMULATOR_H

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/test_runtime.h"

namespace wrenlink::test {

// What the operating system calls an exchange's failure.
enum class NativeError { closed, cutOff, stillPending };
extern const int kNativeErrors[];  // the codes, in this order
std::string textOf(NativeError error);
std::string textOf(int nativeCode);

// What a person puts before a line of the simulator's control language.
extern const char* const kSteering;

// The value of "name=value" in a line of words.
std::string field(const std::string& line, const std::string& name);

using AdapterIds = std::vector<std::uint32_t>;

class Simulator {
   public:
    // Starts adapters 0, 1, ... with these ids, all with this firmware. Throws when that fails.
    explicit Simulator(const AdapterIds& ids = {100}, const std::string& firmware = "1.8");
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator();

    // Carries out a line of the simulator's control language and returns its answer. Throws
    // std::runtime_error when the simulator refuses it.
    std::string control(const std::string& line);

    // The simulator's log of the requests that reached an adapter since the last call of either.
    std::vector<std::string> takeLog(unsigned adapter = 0);
    // Their frames alone, in lower-case hexadecimal; behind a frame that is malformed stands why.
    std::vector<std::string> takeFrames(unsigned adapter = 0);

    // A number of the adapter's state, by its name there.
    int number(const std::string& name, unsigned adapter = 0);

    // Takes the name of a kernel object for something that is none.
    void occupyKernelName(const std::string& name);

    const TestRuntime& runtime() const { return runtime_; }
    const SharedDocuments& documents() const { return documents_; }

   private:
    struct Native;

    std::string run(const std::string& line);

    const TestRuntime runtime_;
    const SharedDocuments documents_;
    Native* native_ = nullptr;
};

}  // namespace wrenlink::test

#endif
