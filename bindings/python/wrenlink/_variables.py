"""The variables of a chip, by name as texts and as typed attributes."""
from __future__ import annotations

import ctypes
from collections.abc import Callable, Iterator, Mapping
from typing import TYPE_CHECKING, Any, Generic, TypeVar, overload

from ._library import VariableRecord, decoded, library
from ._sequence import Value

if TYPE_CHECKING:
    from ._chip import Chip

T = TypeVar("T", bound=float)

_READABLE = (
    "SPIPORT",
    "QUILLVERSION",
    "SPI_DELAY",
    "SPICLOCK",
    "SPIMAXCLOCK",
    "MUTEXNAME",
    "SPICMDBITS",
    "SPICMDREADBITS",
    "SPICMDWRITEBITS",
    "SPIMUL",
)


def defaults() -> dict[str, str]:
    """The variables that can be set, with their default texts."""
    records = ctypes.POINTER(VariableRecord)()
    count = ctypes.c_uint32()
    library().spifns_getvarlist(ctypes.byref(records), ctypes.byref(count))
    return {decoded(r.name): decoded(r.default) for r in records[: count.value]}


class Variables(Mapping[str, str]):
    """The variables of a chip as texts; names in any case.

    The mapping holds what can be read. Setting one that can only be read, or is unknown, and
    reading one that can only be set, is a KeyError.
    """

    def __init__(self, chip: Chip) -> None:
        self._chip = chip

    def __getitem__(self, name: str) -> str:
        if name.upper() not in _READABLE:
            raise KeyError(name)
        return self._chip._get(name)

    def __setitem__(self, name: str, value: Value) -> None:
        if name.upper() not in defaults():
            raise KeyError(name)
        self._chip._set({name: value})

    def __iter__(self) -> Iterator[str]:
        return iter(_READABLE)

    def __len__(self) -> int:
        return len(_READABLE)


class Number(Generic[T]):
    """An attribute of a chip that is one of its variables, as a number."""

    def __init__(self, name: str, parse: Callable[[str], T], doc: str) -> None:
        self._name = name
        self._parse = parse
        self.__doc__ = doc

    @overload
    def __get__(self, chip: None, owner: Any) -> Number[T]: ...

    @overload
    def __get__(self, chip: Chip, owner: Any) -> T: ...

    def __get__(self, chip: Chip | None, owner: Any) -> Number[T] | T:
        return self if chip is None else self._parse(chip._get(self._name))

    def __set__(self, chip: Chip, value: T) -> None:
        chip._set({self._name: value})


def whole(text: str) -> int:
    """A whole number, in decimal or behind 0x."""
    return int(text, 0)
