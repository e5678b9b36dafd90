#include <wrenlink/spifns.h>

int main(void) { return spifns_get_version() == SPIFNS_VERSION ? 0 : 1; }
