// What other libraries take for jobs that can be compared with the library's. WRENLINK_BENCH_MODBUS
// tells the port of the server of registers.
#include <arpa/inet.h>
#include <libusb.h>
#include <modbus.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "bench/exchanges.h"
#include "bench/measure.h"

namespace wrenlink::bench {
namespace {

// ---- To look for devices and choose one --------------------------------------------------------

void openListSelectClose() {
    unsigned ports = 0;
    std::uint32_t id = SPIFNS_NO_STREAM;
    require(spifns_stream_init(&id));
    spifns_enumerate_ports(
        [](std::uint32_t, const char*, void* count) { ++*static_cast<unsigned*>(count); }, &ports);
    SpiAction action{};
    action.type = SpiAction::SetVar;
    action.u.variable = {"SPIPORT", "0", nullptr};
    require(spifns_stream_sequence(id, &action, 1));
    spifns_stream_close(id);
    benchmark::DoNotOptimize(ports);
}

void listUsbDevices() {
    libusb_context* context = nullptr;
    if (libusb_init(&context) != 0) std::abort();
    libusb_device** devices = nullptr;
    benchmark::DoNotOptimize(libusb_get_device_list(context, &devices));
    if (devices != nullptr) libusb_free_device_list(devices, 1);
    libusb_exit(context);
}

// Our adapter is asked for its id when it is looked for, and for its version when it is selected.
void hosts(benchmark::State& state) {
    Bare bare(accesses().front(), 0);
    measure(
        state, 5,
        {{"ours", openListSelectClose}, {"libusb", listUsbDevices}, {"libusb_and_requests", [&] {
                                                                         listUsbDevices();
                                                                         bare.run();
                                                                         bare.run();
                                                                     }}});
}
BENCHMARK(hosts)->UseRealTime();

// ---- As many registers as one request may read -------------------------------------------------

class Modbus {
   public:
    Modbus() : context_(modbus_new_tcp("127.0.0.1", port())) {
        if (modbus_connect(context_) != 0) std::abort();
    }
    Modbus(const Modbus&) = delete;
    Modbus& operator=(const Modbus&) = delete;
    ~Modbus() {
        modbus_close(context_);
        modbus_free(context_);
    }
    static int port() {
        const char* port = std::getenv("WRENLINK_BENCH_MODBUS");
        return port == nullptr ? 0 : std::atoi(port);
    }
    void read() {
        std::uint16_t words[MODBUS_MAX_READ_REGISTERS];
        if (modbus_read_registers(context_, 0, MODBUS_MAX_READ_REGISTERS, words) < 0) std::abort();
    }

   private:
    modbus_t* context_;
};

// The same bytes through a socket, and no library.
class BareRegisters {
   public:
    BareRegisters() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int noDelay = 1;
        ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(Modbus::port()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            std::abort();
    }
    BareRegisters(const BareRegisters&) = delete;
    BareRegisters& operator=(const BareRegisters&) = delete;
    ~BareRegisters() { ::close(socket_); }
    void read() {
        // Transaction, protocol, length, unit, function, first register, registers.
        const std::uint8_t request[] = {0,   1, 0, 0, 0, 6,
                                        255, 3, 0, 0, 0, MODBUS_MAX_READ_REGISTERS};
        std::uint8_t reply[9 + 2 * MODBUS_MAX_READ_REGISTERS];
        if (::send(socket_, request, sizeof request, MSG_NOSIGNAL) < 0 ||
            ::recv(socket_, reply, sizeof reply, MSG_WAITALL) != sizeof reply)
            std::abort();
    }

   private:
    const int socket_;
};

// The server has one client at a time: each turn connects anew.
template <class Client>
Way registers(const char* name, std::string lock) {
    return {name, [lock = std::move(lock)] {
                Client client;
                for (int i = 0; i < 100; ++i) {
                    const SharedLock held(lock);
                    client.read();
                }
            }};
}

void modbus(benchmark::State& state) {
    const std::string lock = makeLock("registers");
    measure(
        state, 1,
        {registers<Modbus>("modbus", ""), registers<BareRegisters>("bare", ""),
         registers<Modbus>("modbus_locked", lock), registers<BareRegisters>("bare_locked", lock)});
}
BENCHMARK(modbus)->UseRealTime();

}  // namespace
}  // namespace wrenlink::bench

BENCHMARK_MAIN();
