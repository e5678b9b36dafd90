/* A host in C99: the header's types and calls, and the layout that it promises. */
#include "wrenlink/spifns.h"

typedef char action_is_32_bytes[sizeof(SpiAction) == 32 ? 1 : -1];
typedef char address_is_at_12[offsetof(SpiAction, u.memory.address) == 12 ? 1 : -1];
typedef char length_is_at_16[offsetof(SpiAction, u.memory.length) == 16 ? 1 : -1];
typedef char data_is_at_24[offsetof(SpiAction, u.memory.data) == 24 ? 1 : -1];
typedef char var_is_at_8[offsetof(SpiAction, u.variable.var) == 8 ? 1 : -1];
typedef char value_is_at_16[offsetof(SpiAction, u.variable.value) == 16 ? 1 : -1];
typedef char variable_is_24_bytes[sizeof(spifns_variable) == 24 ? 1 : -1];

int read_words(uint32_t stream, uint32_t address, uint32_t length, uint16_t* words);

int read_words(uint32_t stream, uint32_t address, uint32_t length, uint16_t* words) {
    SpiAction action = {SPIFNS_READ, 0, {{0, 0, 0, 0, 0}}};
    action.u.memory.address = address;
    action.u.memory.length = length;
    action.u.memory.data = words;
    return spifns_stream_sequence(stream, &action, 1);
}
