// The simulator's driver offers adapters to the whole machine. It lends this process some of its
// own, in place of those, for as long as the process has the driver open: however it ends.
#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "failure.h"
#include "sim/windows/adapter_list.h"
#include "sim/windows/control_client.h"
#include "sim/windows/control_protocol.h"
#include "simulation.h"
#include "system.h"

namespace wren {

namespace {

using quillsim::ControlClient;

constexpr const char* kInstall = "run 'quillsim install' as an administrator, once";
constexpr std::chrono::seconds kPatience(5);

[[noreturn]] void fail(const std::string& text, const std::string& hint) {
    throw Failure(ExitCode::failed, "no simulated adapters: " + text, hint);
}

// Tries something until it succeeds; false when it does not in time.
template <class Attempt>
bool await(Attempt attempt) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!attempt()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void require(bool good, const std::string& otherwise, const std::string& hint) {
    if (!good) fail(otherwise, hint);
}

// Adapters come and go some time after the command.
bool awaitListed(ControlClient& driver) {
    return await([&] { return quillsim::listAdapters().size() == driver.offered(); });
}

// False while another program has some.
bool tryToBorrow(ControlClient& driver, unsigned count) try {
    driver.run("lend " + std::to_string(count));
    return true;
} catch (const std::runtime_error& refusal) {
    if (std::string_view(refusal.what()).ends_with(quillsim::kLentAlready)) return false;
    fail("the driver says '" + system::inUtf8(refusal.what()) + "'", kInstall);
}

void borrow(ControlClient& driver, unsigned count) {
    // The driver may not have noticed yet that the program was killed.
    const bool lent = await([&] { return tryToBorrow(driver, count); });
    require(lent, quillsim::kLentAlready, "try again when it has ended");
    require(awaitListed(driver), "they do not come and go as they should", kInstall);
}

// They go with it, which need not be told when that fails.
struct Loan {
    ~Loan() {
        failureOf([this] {
            borrow(*driver, 0);
            driver.emplace();
            awaitListed(*driver);
        });
    }
    std::optional<ControlClient> driver{std::in_place};
};

}  // namespace

std::shared_ptr<void> simulate(unsigned adapters, const std::string& captureFile, char**) {
    if (!captureFile.empty()) fail("captures are made on Linux alone", "leave --capture out");
    auto loan = std::make_shared<Loan>();
    if (!loan->driver->isOpen()) fail("the simulator's driver is not installed", kInstall);
    if (!std::ranges::all_of(quillsim::listAdapters(), quillsim::isSimulated))
        fail("they would be among those of this machine", "use these, or unplug them");
    // None in between, so that those that go are told from those that come.
    borrow(*loan->driver, 0);
    borrow(*loan->driver, adapters);
    return loan;
}

}  // namespace wren
