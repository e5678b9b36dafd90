"""Chips: open streams, each with an adapter and the Marigold chip behind it."""
from __future__ import annotations

import collections
import contextlib
import ctypes
import logging
import threading
import time
import warnings
from array import array
from collections.abc import Callable, Iterator, Mapping
from typing import TYPE_CHECKING, Any, NamedTuple, SupportsIndex

from ._errors import BusyError, ClosedError, Error, NoAdapterError, SharedMemoryError, VerifyError
from ._errors import address_of, count_from, one_of, refuse, whole
from ._library import NO_STREAM, DebugCallback, PortCallback
from ._library import call, decoded, encoded, last_error, library, logger
from ._lock import choose_runtime_directory, held, why_no_adapters
from ._sequence import Sequence, view_of, view_to_fill, zeros
from ._variables import Number, Value, Variables, hexadecimal

if TYPE_CHECKING:
    from types import TracebackType

    from ._sequence import WordBuffer, Words

    # Told the words that are done and all words, after each piece of a transfer.
    Progress = Callable[[int, int], object]

# Transfers go in pieces, so that progress can be told and Ctrl-C takes effect between them: eight
# full exchanges of writes (504 words each), and of reads (505).
_PIECE = 8 * 504
_MGCMD_WORDS = 508

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
    if library().spifns_count_streams() == 0:
        choose_runtime_directory()
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


def _settings(settings: Mapping[str, Value]) -> Sequence:
    sequence = Sequence()
    for name, value in settings.items():
        sequence.set(name, value)
    return sequence


class Port(NamedTuple):
    """An adapter, as a user chooses among them; open() takes it for a port."""

    key: int  # what selects it, 0 to 31
    id: int
    name: str
    firmware: tuple[int, int] | None  # major and minor; None of one that does not answer

    def __index__(self) -> int:
        return self.key


def ports() -> list[Port]:
    """The adapters, in ascending order of their keys. Exchanges with each of them.

    While a chip is open in this process, those that were there when the first was opened.
    """
    found: list[tuple[int, str]] = []
    # Kept in a variable: the library calls it after this expression.
    add = PortCallback(lambda key, name, _context: found.append((key, decoded(name))))
    with Chip({}) as chip:
        library().spifns_enumerate_ports(add, None)
        return [chip._port(key, name) for key, name in found]


class Chip:
    """A chip behind its adapter, from open() until close() or the end of a with block.

    Addresses (0 to 0xFFFF) and counts are in words of 16 bits; the memory has 65536 of them, and no
    access goes beyond its end. Words go into and out of buffers of 16-bit words in host byte order.

    Arguments are checked before anything is sent: ArgumentError names what is not acceptable. Other
    errors that every method may raise: ClosedError, OpenError, ExchangeError and, without an
    adapter, NoAdapterError; accesses also AdapterError.

    Threads may share a chip: their calls come one after another. Calls on different chips run at
    once, and all of them let other threads of Python run. A call waits for its turn at the adapter
    without a limit, and then at most 1000 ms for each exchange. Transfers go in pieces of 4032
    words; Ctrl-C, and what progress raises, ends them between two. progress is called after each
    piece with the words that are done and with all words.
    """

    clock = Number("SPICLOCK", float, "SPI clock in kHz; set, it becomes the nearest possible.")
    max_clock = Number("SPIMAXCLOCK", float, "Upper limit in kHz of the next setting of clock.")
    delay = Number("SPI_DELAY", int, "SPI delay, 0 (the fastest) to 0xFFFE.")
    mux = Number("SPIMUL", int, "Multiplexed device, 0 to 16.")
    read_bits = Number("SPICMDREADBITS", hexadecimal, "Command bits of reads; from firmware 1.9.")
    write_bits = Number("SPICMDWRITEBITS", hexadecimal, "Command bits of writes; likewise.")

    # What is none of the attributes above is an error to set.
    __slots__ = ("_lock", "_turn", "_is_exclusive", "_stream", "__weakref__")

    def __init__(self, settings: Mapping[str, Value]) -> None:
        self._lock = threading.RLock()
        self._turn = threading.RLock()
        self._is_exclusive = False
        sequence = _settings(settings)
        self._stream: int | None = _new_stream()
        try:
            library().spifns_stream_set_debug_callback(self._stream, _log_callback, None)
            self.submit(sequence)
        except BaseException as error:
            if isinstance(error, NoAdapterError):
                error.text += why_no_adapters()
            self.close()
            raise

    def __repr__(self) -> str:
        if not self._lock.acquire(blocking=False):
            return "<wrenlink.Chip: in a call>"
        try:
            if self.closed:
                return "<wrenlink.Chip: closed>"
            if self.port < 0:
                return "<wrenlink.Chip: no adapter>"
            firmware = ".".join(map(str, self.firmware))
            return f"<wrenlink.Chip: {self.device_id} at port {self.port}, firmware {firmware}>"
        finally:
            self._lock.release()

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
                self._tell("close")
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

    def read(
        self, address: SupportsIndex, count: SupportsIndex, progress: Progress | None = None
    ) -> array[int]:
        """Reads count words (0 to 65536) from address on; returns an array of so many words."""
        words = zeros(count_from(address, count))
        self.read_into(address, words, progress)
        return words

    def read_into(
        self, address: SupportsIndex, buffer: WordBuffer, progress: Progress | None = None
    ) -> None:
        """Fills a buffer of 16-bit words (an array, a numpy array, ...) from address on.

        After a failure, the words of the exchange that failed are undefined.
        """
        self._transfer(Sequence.read_into, address, view_to_fill(buffer), progress)

    def write(
        self, address: SupportsIndex, words: Words, progress: Progress | None = None
    ) -> None:
        """Writes words, a buffer of 16-bit words or numbers from 0 to 0xFFFF, from address on."""
        self._transfer(Sequence.write, address, view_of(words), progress)

    def fill(
        self,
        address: SupportsIndex,
        count: SupportsIndex,
        word: SupportsIndex,
        progress: Progress | None = None,
    ) -> None:
        """Writes a word (0 to 0xFFFF) count times (0 to 65536) from address on."""
        words = array("H", [whole(word, 0, 0xFFFF, f"word {word!r}")]) * count_from(address, count)
        self.write(address, words, progress)

    def verify(
        self, address: SupportsIndex, words: Words, progress: Progress | None = None
    ) -> None:
        """Reads as many words as these from address on. VerifyError tells those that differ."""
        expected = view_of(words)
        found = self.read(address, len(expected), progress)
        if expected == memoryview(found):
            return
        places = enumerate(zip(expected, found), address_of(address))
        differences = [(place, *pair) for place, pair in places if pair[0] != pair[1]]
        at, wanted, got = differences[0]
        what = f"{len(differences)} of {len(found)} words differ"
        error = VerifyError(0, f"{what}, the first is {got:#06x} instead of {wanted:#06x}", at)
        error.differences = differences
        raise error

    def submit(self, sequence: Sequence) -> None:
        """Carries out a sequence and fills the buffers of its reads."""
        with self._lock:
            for step in sequence._steps:
                self._tell(step)
            self._call("spifns_stream_sequence", sequence._packed(), len(sequence._actions))

    @contextlib.contextmanager
    def exclusive(self, timeout: float | None = None) -> Iterator[None]:
        """Keeps hosts that do the same off the adapter for a with block.

            with chip.exclusive(timeout=5):
                chip.write(0x100, patch)
                chip.verify(0x100, patch)

        Holds the lock that the variable MUTEXNAME names, as the wren tool does; a host that does
        not ask for it is not kept off. Waits for it at most timeout seconds, None meaning without a
        limit, and raises BusyError after that. Blocks of one thread may be inside each other;
        threads that share the chip take turns.
        """
        given = timeout is None or isinstance(timeout, (int, float))
        if not given or not 0 <= (timeout or 0) <= threading.TIMEOUT_MAX:
            refuse(f"timeout {timeout!r}", "seconds, 0 or more, or None")
        end = None if timeout is None else time.monotonic() + timeout
        if self.port < 0:
            raise NoAdapterError(258, "no adapter is selected")
        self._tell("exclusive")
        busy = BusyError(0, f"another host has {self.device_id} for itself")
        if not self._turn.acquire(timeout=-1 if timeout is None else timeout):
            raise busy
        with contextlib.ExitStack() as stack:
            stack.callback(self._turn.release)
            if not self._is_exclusive:
                left = None if end is None else max(0, end - time.monotonic())
                try:
                    stack.enter_context(held(self._get("MUTEXNAME"), left))
                except TimeoutError:
                    raise busy from None
                except OSError as error:
                    raise SharedMemoryError(260, f"{error}: no lock for the adapter") from error
                stack.callback(setattr, self, "_is_exclusive", False)
                self._is_exclusive = True
            yield

    def command(self, name: str) -> None:
        """Carries out "DFU" (enter DFU mode) or "SPISLOWER" (lengthen the delay by a quarter)."""
        name = one_of(("DFU", "SPISLOWER"), name, "command")
        self._call("spifns_stream_command", encoded(name), step=name)

    def xap_stopped(self) -> bool:
        """Whether the chip's XAP processor is stopped."""
        return bool(self._call("spifns_stream_marigold_xap_stopped", step="XAP state"))

    def mgcmd_init(self, first: SupportsIndex, second: SupportsIndex) -> None:
        """Prepares the adapter for MGCMD commands with two words, 0 to 0xFFFF.

        FirmwareError from firmware 1.0 to 1.4.
        """
        words = [whole(word, 0, 0xFFFF, f"word {word!r}") for word in (first, second)]
        self._call("spifns_stream_mgcmd_init", *words, step="MGCMD init")

    def mgcmd(self, words: Words, check: bool = True) -> array[int]:
        """Sends an MGCMD command of up to 508 words and returns as many words of answer.

        Without check the answer is returned as it stands, also when the adapter reports a failure.
        """
        exchanged = array("H", view_of(words).tobytes())
        if len(exchanged) > _MGCMD_WORDS:
            refuse(f"an MGCMD command of {len(exchanged)} words", f"up to {_MGCMD_WORDS}")
        data = (ctypes.c_uint16 * len(exchanged)).from_buffer(exchanged)
        size = len(exchanged)
        self._call("spifns_stream_mgcmd_cmd", data, size, int(check), step=f"MGCMD of {size} words")
        return exchanged

    def _transfer(
        self,
        add: Callable[[Sequence, int, memoryview], None],
        address: SupportsIndex,
        view: memoryview,
        progress: Progress | None,
    ) -> None:
        count = count_from(address, len(view))
        with self._lock:
            for done in range(0, max(count, 1), _PIECE):
                end = min(done + _PIECE, count)
                piece = Sequence()
                add(piece, address_of(address) + done, view[done:end])
                self.submit(piece)
                if progress is not None:
                    progress(end, count)

    def _get(self, name: str) -> str:
        return decoded(self._call("spifns_stream_getvar", encoded(name)))

    def _set(self, settings: Mapping[str, Value]) -> None:
        self.submit(_settings(settings))

    def _tell(self, step: str) -> None:
        if logger.isEnabledFor(logging.DEBUG):
            name = "chip" if self.closed or self.port < 0 else self.device_id
            logger.debug("%s: %s", name, step)

    def _port(self, key: int, name: str) -> Port:
        firmware = None
        try:
            self._set({"SPIPORT": key})
            firmware = self.firmware
        except Error as error:
            logger.warning("adapter %s: %s", name, error)
        # The name is "USB SPI (100)".
        return Port(key, int(name.rpartition("(")[2].rstrip(")")), name, firmware)

    def _call(self, function: str, *arguments: object, step: str | None = None) -> Any:
        with self._lock:
            if self._stream is None:
                raise ClosedError(262, "the chip is closed")
            if step is not None:
                self._tell(step)
            return call(function, self._stream, *arguments)
