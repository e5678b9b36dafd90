"""SPI access to a Marigold chip through a Quill USB-to-SPI adapter.

    import wrenlink

    with wrenlink.open(port=100, clock=1000) as chip:
        words = chip.read(0, 65536)         # the whole memory, an array of 16-bit words
        chip.write(0x100, [1, 2, 3])
        chip.verify(0x100, [1, 2, 3])

ports() lists the adapters, open() opens the chip behind one; help(wrenlink.Chip) tells what a chip
does. A Sequence does several things in one call. load_image() and save_image() read and write image
files. `python3 -m wrenlink.remote` brings the adapters of another machine here.

Every failure is a wrenlink.Error with code, text and address. What is not acceptable is an
ArgumentError, also a ValueError, before anything is sent.

The logger "wrenlink" tells each step at level DEBUG, and what the library tells besides; it tells
more when the environment variable SPIDEBUG_FULL is ON before the first call.

The library is the file that the environment variable WRENLINK_LIBRARY names, else one beside this
package, else the one that the system finds.
"""
from __future__ import annotations

from typing import SupportsIndex

from ._chip import Chip, Port, ports
from ._errors import (
    AdapterError,
    ArgumentError,
    BusyError,
    ClosedError,
    Error,
    ExchangeError,
    FirmwareError,
    NoAdapterError,
    OpenError,
    OutOfMemoryError,
    SharedMemoryError,
    StreamError,
    TimedOutError,
    VerifyError,
)
from ._images import load_image, save_image
from ._library import LibraryError
from ._sequence import Sequence
from ._variables import Value, Variables, defaults

__version__ = "1.4.0"

__all__ = [
    "AdapterError",
    "ArgumentError",
    "BusyError",
    "Chip",
    "ClosedError",
    "Error",
    "ExchangeError",
    "FirmwareError",
    "LibraryError",
    "NoAdapterError",
    "OpenError",
    "OutOfMemoryError",
    "Port",
    "Sequence",
    "SharedMemoryError",
    "StreamError",
    "TimedOutError",
    "Variables",
    "VerifyError",
    "defaults",
    "load_image",
    "open",
    "ports",
    "save_image",
]


def open(
    port: SupportsIndex | str | None = 0,
    *,
    mode: str | None = None,
    max_clock: float | None = None,
    clock: float | None = None,
    mux: int | None = None,
    read_bits: int | None = None,
    write_bits: int | None = None,
) -> Chip:
    """Opens the chip behind an adapter.

    port is a port number, an adapter id or a key of the map file, as a number or a text, or one of
    ports(); None selects no adapter. mode is "SPI" or "JTAG", clock and max_clock are in kHz, mux
    is 0 to 16, the command bits are 0 to 0xFFFF. What is not given stays as the adapter has it.

    Exchanges. Raises ArgumentError, NoAdapterError when there is no such adapter, OpenError,
    ExchangeError, StreamError when 32 chips are open, and LibraryError.
    """
    settings: dict[str, Value | None] = {
        "SPIPORT": port,
        "QUILLMODE": mode,
        "SPIMAXCLOCK": max_clock,
        "SPICLOCK": clock,
        "SPIMUL": mux,
        "SPICMDREADBITS": read_bits,
        "SPICMDWRITEBITS": write_bits,
    }
    return Chip({name: value for name, value in settings.items() if value is not None})


# Tracebacks and help() show where users have them from.
for _name in __all__:
    globals()[_name].__module__ = __name__
