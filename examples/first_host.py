"""Lists the adapters, and reads eight words of the chip behind the first one."""
import ctypes
import sys

lib = ctypes.CDLL("libwrenlink.so")
lib.spifns_stream_getvar.restype = ctypes.c_char_p


class Action(ctypes.Structure):
    """One read or write of a sequence; type 0 reads, 1 writes."""

    _fields_ = [("type", ctypes.c_uint32), ("reserved", ctypes.c_uint32 * 2),
                ("address", ctypes.c_uint32), ("length", ctypes.c_uint32),
                ("reserved1", ctypes.c_uint32), ("data", ctypes.POINTER(ctypes.c_uint16))]


class Setting(ctypes.Structure):
    """One setting of a variable; type 2."""

    _fields_ = [("type", ctypes.c_uint32), ("reserved", ctypes.c_uint32),
                ("var", ctypes.c_char_p), ("value", ctypes.c_char_p),
                ("reserved0", ctypes.c_void_p)]


def check(status):
    if status != 0:
        text = ctypes.c_char_p()
        code = lib.spifns_get_last_error(None, ctypes.byref(text))
        sys.exit(f"error {code}: {text.value.decode()}")


@ctypes.CFUNCTYPE(None, ctypes.c_uint32, ctypes.c_char_p, ctypes.c_void_p)
def show_port(key, name, _):
    print(f"port {key}: {name.decode()}")


stream = ctypes.c_uint32()
check(lib.spifns_stream_init(ctypes.byref(stream)))
lib.spifns_enumerate_ports(show_port, None)

select = Setting(type=2, var=b"SPIPORT", value=b"0")
check(lib.spifns_stream_sequence(stream, ctypes.byref(select), 1))
print("clock", lib.spifns_stream_getvar(stream, b"SPICLOCK").decode(), "kHz")

words = (ctypes.c_uint16 * 8)()
read = Action(type=0, address=0x100, length=len(words), data=words)
check(lib.spifns_stream_sequence(stream, ctypes.byref(read), 1))
print(" ".join(f"{word:04x}" for word in words))
lib.spifns_stream_close(stream)
