// A server of registers for peers.cpp. Prints the port where it listens on this machine, and serves
// one client after another until it is ended.
#include <arpa/inet.h>
#include <modbus.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

int main() {
    modbus_t* const context = modbus_new_tcp("127.0.0.1", 0);
    modbus_mapping_t* const registers = modbus_mapping_new(0, 0, MODBUS_MAX_READ_REGISTERS, 0);
    int listener = modbus_tcp_listen(context, 1);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (registers == nullptr ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        std::perror("modbus_server");
        return 1;
    }
    std::printf("%u\n", unsigned{ntohs(address.sin_port)});
    std::fflush(stdout);
    while (modbus_tcp_accept(context, &listener) >= 0) {
        std::uint8_t request[MODBUS_TCP_MAX_ADU_LENGTH];
        for (int length; (length = modbus_receive(context, request)) >= 0;)
            if (length > 0) modbus_reply(context, request, length, registers);
        modbus_close(context);
    }
    return 1;
}
