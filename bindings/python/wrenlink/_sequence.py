"""Sequences: reads, writes and settings that are submitted at once."""
from __future__ import annotations

import ctypes
from array import array
from typing import TYPE_CHECKING, SupportsIndex, Union

from ._library import Action, Variable, encoded
from ._words import unsigned, view_of, view_to_fill, zeros

if TYPE_CHECKING:
    from ._words import View, WordBuffer, Words

# The value of a variable. Numbers become the texts that the library takes.
Value = Union[str, int, float]


class Sequence:
    """Actions in order, submitted by Chip.submit() as often as needed.

    The library packs neighbouring reads and writes into few exchanges. The first failure ends a
    submission; what was done before it stays done. A sequence is built by one thread at a time.
    Chip addresses count words; behind 0xFFFF comes 0.
    """

    def __init__(self) -> None:
        self._actions: list[Action] = []
        self._views: list[View] = []

    def __len__(self) -> int:
        return len(self._actions)

    def read(self, address: SupportsIndex, count: SupportsIndex) -> array[int]:
        """Adds a read and returns the array that a submission fills, of at most 0xFFFF words."""
        words = zeros(unsigned(count, 32, "count"))
        self.read_into(address, words)
        return words

    def read_into(self, address: SupportsIndex, buffer: WordBuffer) -> None:
        """Adds a read that fills a buffer of 16-bit words: an array, a numpy array, ..."""
        self._add_memory(Action.READ, address, view_to_fill(buffer))

    def write(self, address: SupportsIndex, words: Words) -> None:
        """Adds a write of at most 0xFFFF words.

        Of a buffer of 16-bit words, a submission takes what it holds by then; a read-only buffer,
        one that is not in one piece, and numbers of other kinds are copied now.
        """
        self._add_memory(Action.WRITE, address, view_of(words))

    def set(self, name: str, value: Value) -> None:
        """Adds the setting of a variable. An unknown name has no effect."""
        action = Action(type=Action.SET)
        action.u.variable = Variable(var=encoded(name), value=encoded(str(value)))
        self._actions.append(action)

    def _add_memory(self, kind: int, address: SupportsIndex, view: View) -> None:
        action = Action(type=kind)
        action.u.memory.address = unsigned(address, 32, "address")
        action.u.memory.length = len(view)
        action.u.memory.data = ctypes.addressof(view)
        self._actions.append(action)
        self._views.append(view)

    def _packed(self) -> ctypes.Array[Action]:
        """The actions as the library takes them, valid as long as the sequence lives."""
        return (Action * len(self._actions))(*self._actions)
