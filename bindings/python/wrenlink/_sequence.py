"""Sequences: reads, writes and settings that are submitted at once, and the words in them."""
from __future__ import annotations

import ctypes
import sys
from array import array
from typing import TYPE_CHECKING, Protocol, SupportsIndex, Union

from ._errors import address_of, count_from, refuse, whole
from ._library import Action, Variable, encoded
from ._variables import Value, setting

if TYPE_CHECKING:
    from collections.abc import Iterable

    from _typeshed import ReadableBuffer, WriteableBuffer

    # What can be written to a chip: a buffer of 16-bit words, or numbers from 0 to 0xFFFF.
    Words = Union[ReadableBuffer, Iterable[int]]

    class NumpyArray(Protocol):
        """What checkers before PEP 688 do not know for a buffer."""

        @property
        def __array_interface__(self) -> object: ...

    # What can be filled from a chip: a buffer of 16-bit words.
    WordBuffer = Union[WriteableBuffer, NumpyArray]

# The most words of one action.
_ACTION_WORDS = 0xFFFF
_FORMATS = {"H", "@H", "=H", "<H" if sys.byteorder == "little" else ">H"}


def zeros(words: int) -> array[int]:
    """An array of so many words."""
    return array("H", bytes(2 * words))


def view_to_fill(buffer: WordBuffer) -> memoryview:
    """The memory of a buffer that can be filled in place."""
    try:
        view = memoryview(buffer)  # type: ignore[arg-type]
    except TypeError:
        refuse(repr(buffer), "a buffer of 16-bit words (an array 'H', a numpy array uint16)")
    if view.format not in _FORMATS:
        refuse(f"a buffer of format {view.format!r}", "one of 16-bit words, 'H',")
    if view.readonly or not view.c_contiguous:
        refuse("a buffer that is read-only or not in one piece", "another")
    return view.cast("B").cast("H")


def _copied(words: Iterable[int]) -> array[int]:
    try:
        listed = words if isinstance(words, (list, tuple)) else list(words)
    except TypeError:
        refuse(repr(words), "a buffer of 16-bit words, or numbers,")
    try:
        return array("H", listed)
    except (OverflowError, TypeError):
        for place, word in enumerate(listed):
            whole(word, 0, 0xFFFF, f"word {word!r} at place {place}")
        raise


def view_of(words: Words) -> memoryview:
    """The memory of a buffer, or of a copy of numbers."""
    try:
        view = memoryview(words)  # type: ignore[arg-type]
    except TypeError:
        return memoryview(_copied(words))  # type: ignore[arg-type]
    if view.itemsize == 1:
        refuse("a buffer of bytes", "memoryview(...).cast('H'), which makes words of it,")
    if view.format not in _FORMATS:
        return memoryview(_copied(words))  # type: ignore[arg-type]
    if view.readonly or not view.c_contiguous:
        return memoryview(array("H", view.tobytes()))
    return view.cast("B").cast("H")


class Sequence:
    """Reads, writes and settings in order, for Chip.submit(), as often as needed.

        patch = wrenlink.Sequence()
        patch.write(0x200, [0xCAFE])
        found = patch.read(0x300, 16)
        chip.submit(patch)               # now found has the words

    The library packs neighbouring reads and writes into few exchanges of up to 505 words. The first
    failure ends a submission; what was done before it stays done. A sequence is built by one thread
    at a time. What is not acceptable is an ArgumentError when it is added.
    """

    def __init__(self) -> None:
        self._actions: list[Action] = []
        self._views: list[ctypes.Array[ctypes.c_uint16]] = []
        self._steps: list[str] = []

    def __len__(self) -> int:
        """The number of steps."""
        return len(self._steps)

    def __repr__(self) -> str:
        more = ["..."] if len(self) > 8 else []
        return f"<wrenlink.Sequence: {', '.join(self._steps[:8] + more) or 'empty'}>"

    def read(self, address: SupportsIndex, count: SupportsIndex) -> array[int]:
        """Adds a read of count words (0 to 65536) from address (0 to 0xFFFF) on.

        Returns the array of count words that each submission fills.
        """
        words = zeros(count_from(address, count))
        self.read_into(address, words)
        return words

    def read_into(self, address: SupportsIndex, buffer: WordBuffer) -> None:
        """Adds a read that fills a buffer of 16-bit words: an array, a numpy array, ..."""
        self._add_memory(Action.READ, "read", address, view_to_fill(buffer))

    def write(self, address: SupportsIndex, words: Words) -> None:
        """Adds a write of words (at most 65536 of 0 to 0xFFFF) from address (0 to 0xFFFF) on.

        Of a buffer of 16-bit words, a submission takes what it holds by then; a read-only buffer,
        one that is not in one piece, and numbers of other kinds are copied now.
        """
        self._add_memory(Action.WRITE, "write", address, view_of(words))

    def set(self, name: str, value: Value) -> None:
        """Adds the setting of a variable, in any case, to a number, a text of one or a word."""
        name, text = setting(name, value)
        action = Action(type=Action.SET)
        action.u.variable = Variable(var=encoded(name), value=encoded(text))
        self._actions.append(action)
        self._steps.append(f"{name}={text}")

    def _add_memory(self, kind: int, verb: str, address: SupportsIndex, view: memoryview) -> None:
        first, count = address_of(address), count_from(address, len(view))
        for done in range(0, count, _ACTION_WORDS):
            words = min(count - done, _ACTION_WORDS)
            part = (ctypes.c_uint16 * words).from_buffer(view, 2 * done)
            action = Action(type=kind)
            action.u.memory.address = first + done
            action.u.memory.length = words
            action.u.memory.data = ctypes.addressof(part)
            self._actions.append(action)
            self._views.append(part)
        self._steps.append(f"{verb} {count} words from {first:#06x} on")

    def _packed(self) -> ctypes.Array[Action]:
        """The actions as the library takes them, valid as long as the sequence lives."""
        return (Action * len(self._actions))(*self._actions)
