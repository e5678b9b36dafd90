"""SPI access to a Marigold chip through a Quill USB-to-SPI adapter.

    with wrenlink.open(port=100, clock=1000) as chip:
        words = chip.read(0x0, 256)

Debug text goes to the logger "wrenlink". The library is the file that the environment variable
WRENLINK_LIBRARY names, else one beside this package, else the one that the system finds.
"""
from __future__ import annotations

import operator
from typing import SupportsIndex

from ._chip import Chip, Port, ports
from ._errors import (
    AdapterError,
    ArgumentError,
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
)
from ._library import LibraryError
from ._sequence import Sequence, Value
from ._variables import Variables, defaults

__all__ = [
    "AdapterError",
    "ArgumentError",
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
    "defaults",
    "open",
    "ports",
]


def open(
    port: SupportsIndex | None = 0,
    *,
    mode: str | None = None,
    max_clock: float | None = None,
    clock: float | None = None,
    mux: int | None = None,
    read_bits: int | None = None,
    write_bits: int | None = None,
) -> Chip:
    """Opens the chip behind an adapter.

    port is a port number, an adapter id or a key of the map file; None selects no adapter. mode is
    "SPI" or "JTAG"; clocks are in kHz. What is not given stays as the adapter has it.
    """
    settings: dict[str, Value | None] = {
        "SPIPORT": None if port is None else operator.index(port),
        "QUILLMODE": mode,
        "SPIMAXCLOCK": max_clock,
        "SPICLOCK": clock,
        "SPIMUL": mux,
        "SPICMDREADBITS": read_bits,
        "SPICMDWRITEBITS": write_bits,
    }
    return Chip({name: value for name, value in settings.items() if value is not None})
