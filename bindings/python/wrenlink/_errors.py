"""The exceptions, which stand for the library's error codes, and the checks of arguments."""
from __future__ import annotations

import operator
from typing import TYPE_CHECKING, NoReturn, SupportsIndex

if TYPE_CHECKING:
    from collections.abc import Iterable

# The memory of a chip.
MEMORY_WORDS = 0x10000


class Error(Exception):
    """A failure of the library or of this package.

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
        code = f"error {self.code}: " if self.code else ""
        return f"{code}{' '.join(self.text.split())}{where}"


class ArgumentError(Error, ValueError):
    """An argument, an address, a count, a word, a variable or its value is not acceptable.

    The text names it and what would do. Nothing was sent.
    """


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


class BusyError(Error, TimeoutError):
    """Another host has the adapter for itself."""


class VerifyError(Error):
    """The chip holds other words than it should.

    address is that of the first one; differences has an (address, expected, found) for each.
    """

    differences: list[tuple[int, int, int]]


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


def refuse(what: str, would_do: str, code: int = 1, address: int = 0) -> NoReturn:
    """Says what is not acceptable, and what would be."""
    raise ArgumentError(code, f"{what} is not acceptable; {would_do} would do", address)


def whole(value: object, least: int, most: int, what: str, code: int = 1) -> int:
    """A whole number in its limits."""
    try:
        number = operator.index(value)  # type: ignore[arg-type]
    except TypeError:
        number = least - 1
    if not least <= number <= most:
        address = number if code == 265 and 0 <= number < 1 << 32 else 0
        refuse(what, f"a whole number from {least} to {most:#x}", code, address)
    return number


def address_of(address: SupportsIndex) -> int:
    """The address of a word."""
    return whole(address, 0, MEMORY_WORDS - 1, f"address {address!r}", 265)


def count_from(address: SupportsIndex, count: SupportsIndex) -> int:
    """How many words follow an address; none of them lies beyond the last one of the chip."""
    first = address_of(address)
    return whole(
        count, 0, MEMORY_WORDS - first, f"count {count!r} from address {first:#06x} on", 266
    )


def one_of(words: Iterable[str], value: object, what: str) -> str:
    """A word in any case; gives it in capitals."""
    if isinstance(value, str) and value.upper() in words:
        return value.upper()
    refuse(f"{what} {value!r}", " or ".join(words))
