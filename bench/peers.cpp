// What other libraries take for jobs that can be compared with the library's. Names end in the name
// of the other library. WRENLINK_BENCH_MODBUS tells the port of the server of registers.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <libusb.h>
#include <modbus.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/interprocess/sync/named_mutex.hpp>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

// Looks for devices, as a host does that looks for adapters.
void listDevices(benchmark::State& state) {
    for (auto _ : state) {
        libusb_context* context = nullptr;
        if (libusb_init(&context) != 0) return state.SkipWithError("cannot start libusb");
        libusb_device** devices = nullptr;
        benchmark::DoNotOptimize(libusb_get_device_list(context, &devices));
        if (devices != nullptr) libusb_free_device_list(devices, 1);
        libusb_exit(context);
    }
}
BENCHMARK(listDevices)->Name("open_list_select_close/libusb")->UseRealTime();

void namedMutex(benchmark::State& state) {
    using boost::interprocess::named_mutex;
    const std::string name = "wrenlink-bench-" + std::to_string(::getpid());
    {
        const named_mutex made(boost::interprocess::open_or_create, name.c_str());
        for (auto _ : state) {
            named_mutex mutex(boost::interprocess::open_or_create, name.c_str());
            mutex.lock();
            mutex.unlock();
        }
    }
    named_mutex::remove(name.c_str());
}
BENCHMARK(namedMutex)->Name("mutex/boost");

// ---- As many registers as one request may read -------------------------------------------------

int modbusPort() {
    const char* port = std::getenv("WRENLINK_BENCH_MODBUS");
    return port == nullptr ? 0 : std::atoi(port);
}

void modbusRead(benchmark::State& state) {
    modbus_t* const context = modbus_new_tcp("127.0.0.1", modbusPort());
    if (modbus_connect(context) != 0) state.SkipWithError("cannot connect");
    std::uint16_t words[MODBUS_MAX_READ_REGISTERS];
    for (auto _ : state)
        if (modbus_read_registers(context, 0, MODBUS_MAX_READ_REGISTERS, words) !=
            MODBUS_MAX_READ_REGISTERS)
            state.SkipWithError("cannot read");
    modbus_close(context);
    modbus_free(context);
}
BENCHMARK(modbusRead)->Name("registers/modbus")->UseRealTime();

// The same bytes through a socket, and no library.
void bareRead(benchmark::State& state) {
    const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int noDelay = 1;
    ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(modbusPort()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        state.SkipWithError("cannot connect");
    // Transaction, protocol, length, unit, function, first register, registers.
    const std::uint8_t request[] = {0, 1, 0, 0, 0, 6, 255, 3, 0, 0, 0, MODBUS_MAX_READ_REGISTERS};
    std::uint8_t reply[9 + 2 * MODBUS_MAX_READ_REGISTERS];
    for (auto _ : state)
        if (::send(connection, request, sizeof request, MSG_NOSIGNAL) < 0 ||
            ::recv(connection, reply, sizeof reply, MSG_WAITALL) != sizeof reply)
            state.SkipWithError("cannot read");
    ::close(connection);
}
BENCHMARK(bareRead)->Name("registers/bare")->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
