#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "sim/posix/control_client.h"
#include "tests/support/program.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {

struct Simulator::Native {
    std::unique_ptr<Program> process;
    quillsim::ControlClient client;
};

const int kNativeErrors[] = {ECONNRESET, EPROTO, EINPROGRESS};
const char* const kSteering = "quillsim --control";

std::string textOf(int nativeCode) { return std::strerror(nativeCode); }

Simulator::Simulator(const AdapterIds& ids, const std::string& firmware) {
    std::vector<std::string> words = {QUILLSIM, "--firmware", firmware, "--adapters",
                                      std::to_string(ids.size())};
    for (const std::uint32_t id : ids) words.insert(words.end(), {"--id", std::to_string(id)});
    auto process = std::make_unique<Program>(words);
    if (process->readLine() != "ready") throw std::runtime_error("the simulator does not start");
    native_ = new Native{std::move(process), quillsim::ControlClient(runtime_.path())};
}

Simulator::~Simulator() { delete native_; }

std::string Simulator::run(const std::string& line) { return native_->client.run(line); }

void Simulator::occupyKernelName(const std::string& name) {
    std::filesystem::create_directory(runtime_.path() / "objects" / name);
}

}  // namespace wrenlink::test
