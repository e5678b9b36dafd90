/* Writes eight words to the chip behind the first adapter and reads them back. */
#include <stdio.h>
#include <string.h>
#include <wrenlink/spifns.h>

static int failed(const char* doing) {
    const char* text = "";
    int code = spifns_get_last_error(NULL, &text);
    fprintf(stderr, "%s: error %d: %s\n", doing, code, text);
    return 1;
}

int main(void) {
    uint16_t written[8] = {1, 1, 2, 3, 5, 8, 13, 21};
    uint16_t found[8] = {0};

    /* One sequence: select the adapter, set the clock in kHz, write, read. */
    SpiAction actions[4] = {{0}};
    actions[0].type = SPIFNS_SETVAR;
    actions[0].u.variable.var = "SPIPORT";
    actions[0].u.variable.value = "0";
    actions[1].type = SPIFNS_SETVAR;
    actions[1].u.variable.var = "SPICLOCK";
    actions[1].u.variable.value = "1000";
    actions[2].type = SPIFNS_WRITE;
    actions[2].u.memory.address = 0x100;
    actions[2].u.memory.length = 8;
    actions[2].u.memory.data = written;
    actions[3].type = SPIFNS_READ;
    actions[3].u.memory.address = 0x100;
    actions[3].u.memory.length = 8;
    actions[3].u.memory.data = found;

    uint32_t stream;
    if (spifns_stream_init(&stream) != 0) return failed("open");
    int result = 0;
    if (spifns_stream_sequence(stream, actions, 4) != 0) {
        result = failed("sequence");
    } else {
        printf("clock %s kHz\n", spifns_stream_getvar(stream, "SPICLOCK"));
        result = memcmp(written, found, sizeof found) != 0;
        printf("the words %s\n", result == 0 ? "came back" : "differ");
    }
    spifns_stream_close(stream);
    return result;
}
