// What host processes are free to do beside calling the library: leave while threads are in calls,
// end threads, change their environment, fork.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

#include "tests/exports/loaded_library.h"
#include "tests/support/child_process.h"
#include "tests/support/simulator.h"

namespace wrenlink::test {
namespace {

namespace fs = std::filesystem;

// A stream of a loaded library, with the adapter selected.
class Host {
   public:
    explicit Host(const LoadedLibrary& library) : library_(library) {
        library.init(&id_);
        set("SPIPORT", "0");
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host() { library_.close(id_); }

    bool set(const char* name, const char* value) const {
        SpiAction action{SPIFNS_SETVAR, 0, {.variable = {name, value, nullptr}}};
        return library_.run(id_, &action, 1) == 0;
    }
    std::string get(const char* name) const { return library_.getvar(id_, name); }
    bool read() const {
        std::uint16_t word = 0;
        SpiAction action{SPIFNS_READ, 0, {.memory = {0, 0, 1, 0, &word}}};
        return library_.run(id_, &action, 1) == 0;
    }

   private:
    const LoadedLibrary& library_;
    std::uint32_t id_ = SPIFNS_NO_STREAM;
};

// Forks a child that ends with what the work returns, but not by itself without an exit.
pid_t startChild(const std::function<bool()>& work) {
    const pid_t child = ::fork();
    if (child != 0) return child;
    ::alarm(20);
    ::_exit(work() ? 0 : 1);
}

bool endedWell(pid_t child) {
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Makes mistakes and forgets them, exchanges, or opens and closes streams, without an end.
[[noreturn]] void workInThreads(int kind) {
    std::atexit([] { ::usleep(2000); });  // after the library has been unloaded
    static const LoadedLibrary* const library = new LoadedLibrary();
    static std::atomic<int> started{0};
    for (int i = 0; i < 4; ++i)
        std::thread([kind] {
            ++started;
            if (kind == 1)
                for (;;) Host(*library).get("SPI_DELAY");
            if (kind == 2)
                for (const Host host(*library);;) host.read();
            for (;;) {
                library->getvar(40, "SPIPORT");
                library->clearLastError();
            }
        }).detach();
    while (started < 4) std::this_thread::yield();
    ::usleep(1000);
    std::exit(0);
}

bool leaveUnderCalls() {
    const Simulator simulator;
    for (unsigned i = 0; i < 40 * scale(); ++i) {
        const int kind = i % 10 == 8 ? 1 : i % 10 == 9 ? 2 : 0;
        const pid_t child = startChild([kind]() -> bool { workInThreads(kind); });
        if (!endedWell(child)) return false;
    }
    return true;
}

void* openAndClose(void*) {
    const LoadedLibrary library;
    const Host host(library);
    return nullptr;
}

// Several at once, and then one whose stack's memory is gone with it, and another.
bool traceInThreads() {
    const LoadedLibrary library;
    {
        const std::jthread both[] = {std::jthread(openAndClose, nullptr),
                                     std::jthread(openAndClose, nullptr)};
    }
    constexpr std::size_t kSize = 1 << 20;
    void* const stack = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstack(&attributes, stack, kSize);
    pthread_t thread;
    if (::pthread_create(&thread, &attributes, openAndClose, nullptr) != 0) return false;
    ::pthread_join(thread, nullptr);
    ::munmap(stack, kSize);
    openAndClose(nullptr);
    return true;
}

bool traceInThreadThatEnds() {
    const Simulator simulator;
    const fs::path log = simulator.runtime().path() / "trace";
    setEnvironment("TIDEWATER_LOG", log.string());
    const std::uint64_t handles = takeStock().handles;
    return traceInThreads() && fs::file_size(log) > 0 && takeStock().handles == handles;
}

bool changeTheEnvironment() {
    Simulator simulator;
    const TestRuntime other;  // which the environment names from now on, but nobody offers
    setEnvironment("WRENLINK_RUNTIME_DIR", simulator.runtime().path().string());
    std::setlocale(LC_ALL, "C.UTF-8");  // for texts of errors
    const LoadedLibrary library;
    {
        const Host host(library);
        setEnvironment("WRENLINK_RUNTIME_DIR", other.path().string());
        char** const variables = environ;
        environ = reinterpret_cast<char**>(16);  // as bad as it can be in the middle of a change
        const bool good = host.read() && host.set("SPI_DELAY", "9");
        simulator.control("unplug 0");
        const bool failed = !host.read() && library.lastError(nullptr, nullptr) == 515;
        simulator.control("plug 0");
        environ = variables;
        if (!good || !failed || !fs::is_empty(other.path() / "objects")) return false;
    }
    return !Host(library).read();  // looks anew, and finds no adapter there
}

// Whether another host has its turn although a child of the killed one lives on.
bool forkDuringAnExchange() {
    Simulator simulator;
    simulator.control("fault 0 delay 800 code=0x0100");
    int children[2];
    if (::pipe(children) != 0) return false;
    const pid_t killed = startChild([&] {
        const LoadedLibrary library;
        const Host host(library);
        std::thread exchange([&] { host.read(); });
        while (simulator.control("log 0").find("code=0x0100") == std::string::npos) ::usleep(100);
        const pid_t child = startChild([] { return ::pause() == 0; });
        return ::write(children[1], &child, sizeof child) < 0 || ::pause() == 0;
    });
    pid_t child = 0;
    if (::read(children[0], &child, sizeof child) != sizeof child) return false;
    ::kill(killed, SIGKILL);
    ::waitpid(killed, nullptr, 0);
    const bool good = endedWell(startChild([] {
        ::alarm(5);
        const LoadedLibrary library;
        return Host(library).read();
    }));
    ::kill(child, SIGKILL);
    return good;
}

// Whether the caches of an adapter go with their last host although a child of it lives on, and
// that child has caches of its own when it wants them.
bool forkWithAStream() {
    Simulator simulator;
    const LoadedLibrary library;
    int go[2];
    if (::pipe(go) != 0) return false;
    pid_t child = 0;
    {
        const Host host(library);
        host.set("SPI_DELAY", "9");
        child = startChild([&] {
            char byte = 0;
            return ::read(go[0], &byte, 1) == 1 && host.set("SPI_DELAY", "9") &&
                   host.get("SPI_DELAY") == "9" && simulator.number("delay") == 9;
        });
    }
    simulator.control("set 0 delay 5");  // while nobody looks
    if (Host(library).get("SPI_DELAY") != "5") return false;
    return ::write(go[1], "", 1) == 1 && endedWell(child);
}

struct Deed {
    const char* name;
    bool (*isDone)();
    const char* seenBefore;
};

const Deed kDeeds[] = {
    {"LeaveUnderCalls", leaveUnderCalls, "one of ten crashed"},
    {"TraceInThreadThatEnds", traceInThreadThatEnds, "crashed with the next stream"},
    {"ChangeTheEnvironment", changeTheEnvironment, "crashed in an exchange; two kinds of lock"},
    {"ForkDuringAnExchange", forkDuringAnExchange, "the next host waited for the child's end"},
    {"ForkWithAStream", forkWithAStream, "the caches outlived the last host"},
};

const ChildRole kDo("do", [](const Arguments& arguments) {
    const Deed& deed = kDeeds[std::stoul(arguments.at(0))];
    return deed.isDone() ? 0 : 1;
});

class HostProcesses : public testing::TestWithParam<std::size_t> {};

TEST_P(HostProcesses, May) {
    EXPECT_EQ(ChildProcess("do", {std::to_string(GetParam())}).wait(), 0)
        << "as before: " << kDeeds[GetParam()].seenBefore;
}

INSTANTIATE_TEST_SUITE_P(Do, HostProcesses, testing::Range<std::size_t>(0, std::size(kDeeds)),
                         [](const auto& index) { return kDeeds[index.param].name; });

}  // namespace
}  // namespace wrenlink::test
