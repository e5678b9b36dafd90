"""Chips: open streams, each with an adapter and the Marigold chip behind it."""
from __future__ import annotations

import collections
import contextlib
import ctypes
import threading
import warnings
from array import array
from typing import TYPE_CHECKING, Any, NamedTuple, SupportsIndex

from ._errors import ClosedError, Error
from ._library import NO_STREAM, DebugCallback, PortCallback, call, decoded, encoded, last_error
from ._library import library, logger
from ._sequence import Sequence, Value
from ._variables import Number, Variables, whole
from ._words import unsigned, view_of

if TYPE_CHECKING:
    from collections.abc import Mapping
    from types import TracebackType

    from ._words import WordBuffer, Words

# Streams whose chips were dropped while open. They are closed when the next is opened and not at
# once: closing clears the last error of whichever thread the chip happens to be dropped on.
_dropped: collections.deque[int] = collections.deque()


def _log(text: bytes, _context: Any) -> None:
    logger.debug("%s", decoded(text).rstrip())


# One for all chips and for good, so that the library never calls one that is gone.
_log_callback = DebugCallback(_log)


def _new_stream() -> int:
    with contextlib.suppress(IndexError):
        while True:
            library().spifns_stream_close(_dropped.pop())
    library().spifns_clear_last_error()
    stream = ctypes.c_uint32(NO_STREAM)
    status = library().spifns_stream_init(ctypes.byref(stream))
    error = last_error()
    if status != 0:
        raise error or Error(0, "the library gives no stream")
    if error is not None:
        # Only an adapter that does not tell its id; the others can be used.
        logger.warning("looking for adapters: %s", error)
    return stream.value


class Port(NamedTuple):
    """An adapter, as a user chooses among them."""

    key: int  # what selects it, 0 to 31
    name: str  # tells its id


def ports() -> list[Port]:
    """The adapters, in ascending order of their keys.

    While a chip is open in this process, those that were there when the first was opened.
    """
    found: list[Port] = []
    # Kept in a variable: the library calls it after this expression.
    add = PortCallback(lambda key, name, _context: found.append(Port(key, decoded(name))))
    stream = _new_stream()
    try:
        library().spifns_enumerate_ports(add, None)
    finally:
        library().spifns_stream_close(stream)
    return found


class Chip:
    """A chip behind its adapter, from open() until close() or the end of a with block.

    Threads may share a chip: their calls come one after another. Calls on different chips run at
    once, and all of them let other threads of Python run. Every method may raise an Error.
    """

    clock = Number("SPICLOCK", float, "SPI clock in kHz; set, it becomes the nearest possible")
    max_clock = Number("SPIMAXCLOCK", float, "upper limit in kHz of the next setting of clock")
    delay = Number("SPI_DELAY", int, "SPI delay, 0 (the fastest) to 0xFFFF")
    mux = Number("SPIMUL", int, "multiplexed device, 0 to 16")
    read_bits = Number("SPICMDREADBITS", whole, "command bits of reads, from firmware 1.9 on")
    write_bits = Number("SPICMDWRITEBITS", whole, "command bits of writes, from firmware 1.9 on")

    def __init__(self, settings: Mapping[str, Value]) -> None:
        self._lock = threading.RLock()
        self._stream: int | None = _new_stream()
        try:
            library().spifns_stream_set_debug_callback(self._stream, _log_callback, None)
            self._set(settings)
        except BaseException:
            self.close()
            raise

    def __enter__(self) -> Chip:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def __del__(self) -> None:
        stream = getattr(self, "_stream", None)
        if stream is not None:
            _dropped.append(stream)
            warnings.warn("a chip was not closed", ResourceWarning, source=self)

    def close(self) -> None:
        """Closes the chip, after the calls that other threads have on it. Never fails."""
        with self._lock:
            if self._stream is not None:
                library().spifns_stream_close(self._stream)
                self._stream = None

    @property
    def closed(self) -> bool:
        """Whether the chip is closed; everything but close() then raises ClosedError."""
        return self._stream is None

    @property
    def variables(self) -> Variables:
        """All variables, by name, as texts."""
        return Variables(self)

    @property
    def port(self) -> int:
        """The adapter's port number; -1 when none is selected."""
        return int(self._get("SPIPORT"))

    @property
    def firmware(self) -> tuple[int, int]:
        """The adapter's firmware version, major and minor."""
        major, minor = bytes.fromhex(self._get("QUILLVERSION"))
        return major, minor

    @property
    def device_id(self) -> str:
        """The adapter's id behind the word quill."""
        buffer = ctypes.create_string_buffer(32)
        self._call("spifns_stream_get_device_id", buffer, len(buffer))
        return decoded(buffer.value)

    def read(self, address: SupportsIndex, count: SupportsIndex) -> array[int]:
        """Reads up to 0xFFFF words of chip memory."""
        sequence = Sequence()
        words = sequence.read(address, count)
        self.submit(sequence)
        return words

    def read_into(self, address: SupportsIndex, buffer: WordBuffer) -> None:
        """Fills a buffer of 16-bit words (an array, a numpy array, ...) from chip memory.

        After a failure the words of the exchange that failed are undefined.
        """
        sequence = Sequence()
        sequence.read_into(address, buffer)
        self.submit(sequence)

    def write(self, address: SupportsIndex, words: Words) -> None:
        """Writes up to 0xFFFF words, a buffer of 16-bit words or numbers, to chip memory."""
        sequence = Sequence()
        sequence.write(address, words)
        self.submit(sequence)

    def submit(self, sequence: Sequence) -> None:
        """Carries out a sequence and fills the buffers of its reads."""
        self._call("spifns_stream_sequence", sequence._packed(), len(sequence))

    def command(self, name: str) -> None:
        """Carries out "DFU" (enter DFU mode) or "SPISLOWER" (lengthen the delay by a quarter).

        Other names have no effect.
        """
        self._call("spifns_stream_command", encoded(name))

    def xap_stopped(self) -> bool:
        """Whether the chip's XAP processor is stopped."""
        return bool(self._call("spifns_stream_marigold_xap_stopped"))

    def mgcmd_init(self, first: SupportsIndex, second: SupportsIndex) -> None:
        """Prepares the adapter for MGCMD commands with two words."""
        words = unsigned(first, 16, "word"), unsigned(second, 16, "word")
        self._call("spifns_stream_mgcmd_init", *words)

    def mgcmd(self, words: Words, check: bool = True) -> array[int]:
        """Sends an MGCMD command of up to 508 words and returns as many words of answer.

        Without check the answer is returned as it stands, also when the adapter reports a failure.
        """
        exchanged = array("H", bytes(view_of(words)))
        view = view_of(exchanged)
        # More than the field can say is too long as well; the library says so.
        self._call("spifns_stream_mgcmd_cmd", view, min(len(view), 0xFFFF), int(check))
        return exchanged

    def _get(self, name: str) -> str:
        return decoded(self._call("spifns_stream_getvar", encoded(name)))

    def _set(self, settings: Mapping[str, Value]) -> None:
        sequence = Sequence()
        for name, value in settings.items():
            sequence.set(name, value)
        self.submit(sequence)

    def _call(self, function: str, *arguments: object) -> Any:
        with self._lock:
            if self._stream is None:
                raise ClosedError(262, "the chip is closed")
            return call(function, self._stream, *arguments)
