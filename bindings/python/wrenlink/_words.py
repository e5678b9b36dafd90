"""Words of the chip in Python's buffers. Everything here has 16-bit words in host byte order."""
from __future__ import annotations

import ctypes
import operator
import sys
from array import array
from typing import TYPE_CHECKING, SupportsIndex, Union

if TYPE_CHECKING:
    from collections.abc import Iterable

    from _typeshed import ReadableBuffer, WriteableBuffer

    # What can be written to a chip: a buffer of 16-bit words, or numbers from 0 to 0xFFFF.
    Words = Union[ReadableBuffer, Iterable[int]]
    # What can be filled from a chip: a buffer of 16-bit words.
    WordBuffer = WriteableBuffer
    # The memory of a buffer, which lives and stays in place as long as this does.
    View = ctypes.Array[ctypes.c_uint16]

_FORMATS = {"H", "@H", "=H", "<H" if sys.byteorder == "little" else ">H"}


def unsigned(value: SupportsIndex, bits: int, what: str) -> int:
    """A number that fits its field; ctypes would cut others without a word."""
    number = operator.index(value)
    if not 0 <= number < 1 << bits:
        raise ValueError(f"{what} {number} is not a number of {bits} bits")
    return number


def _shared(buffer: WordBuffer, words: int) -> View:
    return (ctypes.c_uint16 * words).from_buffer(buffer)


def zeros(words: int) -> array[int]:
    """An array of so many words."""
    return array("H", bytes(2 * words))


def view_to_fill(buffer: WordBuffer) -> View:
    """The memory of a buffer that can be filled in place."""
    view = memoryview(buffer)
    if view.format not in _FORMATS:
        raise TypeError(f"a buffer of format {view.format!r}; 16-bit words ('H') are needed")
    if view.readonly or not view.c_contiguous:
        raise TypeError("a buffer that is read-only or not in one piece cannot be filled")
    return _shared(view, view.nbytes // 2)


def view_of(words: Words) -> View:
    """The memory of a buffer, or of a copy of numbers."""
    try:
        view = memoryview(words)  # type: ignore[arg-type]
    except TypeError:
        copy = array("H", words)  # type: ignore[arg-type]
        return _shared(copy, len(copy))
    if view.itemsize == 1:
        raise TypeError("bytes instead of words; memoryview(...).cast('H') makes words of them")
    if view.format not in _FORMATS:
        copy = array("H", words)  # type: ignore[arg-type]
        return _shared(copy, len(copy))
    if view.readonly or not view.c_contiguous:
        copy = array("H", view.tobytes())
        return _shared(copy, len(copy))
    return _shared(view, view.nbytes // 2)
