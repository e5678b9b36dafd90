"""Lists the adapters, and reads eight words of the chip behind the first one."""
import sys

import wrenlink

for port in wrenlink.ports():
    print(f"port {port.key}: {port.name}")
try:
    with wrenlink.open(port=0) as chip:
        print(f"clock {chip.clock} kHz")
        words = chip.read(0x100, 8)
except wrenlink.Error as error:
    sys.exit(f"{error}")
print(" ".join(f"{word:04x}" for word in words))
