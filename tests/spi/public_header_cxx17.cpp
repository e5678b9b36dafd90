// A host in C++17.
#include "wrenlink/spifns.h"

int selectPort(const char* port);

int selectPort(const char* port) {
    SpiAction action{};
    action.type = SpiAction::SetVar;
    action.u.variable.var = "SPIPORT";
    action.u.variable.value = port;
    return spifns_sequence(&action, 1);
}
