"""The exceptions that stand for the library's error codes."""
from __future__ import annotations


class Error(Exception):
    """A failure that the library reported.

    code is the library's error code; 0 when it gave none, as for a chip without an adapter. text
    says what failed, from the cause outward. address is the chip address of a failed access, or 0.
    """

    def __init__(self, code: int, text: str, address: int = 0) -> None:
        super().__init__(code, text, address)
        self.code = code
        self.text = text
        self.address = address

    def __str__(self) -> str:
        where = f" (address {self.address:#06x})" if self.address else ""
        return f"error {self.code}: {' '.join(self.text.split())}{where}"


class ArgumentError(Error, ValueError):
    """An argument, an address, a length, a variable or its value is not acceptable."""


class OutOfMemoryError(Error, MemoryError):
    """The library could not allocate memory."""


class NoAdapterError(Error):
    """There is no such adapter, none is selected, or the map file is faulty."""


class StreamError(Error):
    """32 chips are open in this process."""


class ClosedError(Error, ValueError):
    """The chip is closed."""


class SharedMemoryError(Error):
    """What processes share of an adapter is not available."""


class OpenError(Error):
    """The adapter cannot be opened: unplugged, or in the hands of another program or user."""


class ExchangeError(Error):
    """An exchange with the adapter failed."""


class TimedOutError(ExchangeError, TimeoutError):
    """The adapter did not answer within 1000 ms."""


class AdapterError(Error):
    """The adapter reported a failure."""


class FirmwareError(Error):
    """The adapter's firmware is too old."""


_CLASSES: dict[int, type[Error]] = {
    0: NoAdapterError,
    1: ArgumentError,
    257: OutOfMemoryError,
    258: NoAdapterError,
    260: SharedMemoryError,
    261: StreamError,
    262: ClosedError,
    265: ArgumentError,
    266: ArgumentError,
    514: NoAdapterError,
    515: OpenError,
    516: ExchangeError,
    517: AdapterError,
    520: FirmwareError,
}


def error_of(code: int, text: str, address: int) -> Error:
    """The exception for what the library left as its last error."""
    if code == 0:
        return NoAdapterError(0, "no adapter is selected")
    if code == 516 and "Driver IO timed out" in text:
        return TimedOutError(code, text, address)
    if code == 517:
        # A failed read's address, which the library takes over byte by byte in the adapter's order.
        address = (address & 0xFF) << 8 | address >> 8
    return _CLASSES.get(code, Error)(code, text, address)
