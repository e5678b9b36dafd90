// The simulator's driver offers the adapters, to the whole machine. It is installed beforehand,
// once for all tests; a test has the adapters alone from its documents folder on, which one test
// has at a time.
#include <windows.h>

#include <array>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

#include "sim/windows/adapter_list.h"
#include "sim/windows/control_client.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

constexpr std::chrono::seconds kPatience(20);

using Handle = std::unique_ptr<void, decltype([](HANDLE handle) { ::CloseHandle(handle); })>;

// Adapters come and go some time after the command.
void awaitPlugged(quillsim::ControlClient& client) {
    const std::size_t plugged = client.offered();
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (quillsim::listAdapters().size() != plugged) {
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error("the list of adapters does not change");
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

}  // namespace

struct Simulator::Native {
    quillsim::ControlClient client;
    std::vector<Handle> occupants;  // each keeps a name from others
};

const int kNativeErrors[] = {ERROR_DEVICE_NOT_CONNECTED, ERROR_IO_DEVICE, ERROR_IO_PENDING};
const char* const kSteering = "quillsim control";

std::string textOf(int nativeCode) {
    std::array<char, 1024> text;
    const DWORD length = ::FormatMessageA(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(nativeCode), 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
    return {text.data(), length};
}

Simulator::Simulator(const AdapterIds& ids, const std::string& firmware) {
    auto native = std::make_unique<Native>();
    quillsim::ControlClient& client = native->client;
    if (!client.isOpen()) throw std::runtime_error("the simulator's driver is not installed");
    client.run("adapters " + std::to_string(ids.size()));
    for (std::size_t i = 0; i < ids.size(); ++i) {
        const std::string set = "set " + std::to_string(i);
        client.run(set + " id " + std::to_string(ids[i]));
        client.run(set + " firmware " + firmware);
    }
    awaitPlugged(client);
    native_ = native.release();
}

Simulator::~Simulator() {
    try {
        native_->client.run("adapters 0");
    } catch (const std::exception&) {
        // The next simulator will notice.
    }
    delete native_;
}

std::string Simulator::run(const std::string& line) {
    std::string answer = native_->client.run(line);
    if (line.starts_with("plug ") || line.starts_with("unplug ")) awaitPlugged(native_->client);
    return answer;
}

void Simulator::occupyKernelName(const std::string& name) {
    Handle event(::CreateEventA(nullptr, TRUE, FALSE, name.c_str()));
    if (!event) throw std::runtime_error(name + " is in use");
    native_->occupants.push_back(std::move(event));
}

}  // namespace wrenlink::test
