"""The variables of a chip: what each takes, as texts by name and as numbers in attributes."""
from __future__ import annotations

import contextlib
import ctypes
from collections.abc import Callable, Iterator, Mapping
from typing import TYPE_CHECKING, Any, Generic, SupportsIndex, TypeVar, Union, cast

from ._errors import one_of, refuse, whole
from ._library import VariableRecord, decoded, library

if TYPE_CHECKING:
    from ._chip import Chip

T = TypeVar("T", bound=float)
# The value of a variable: a number, or a text of one as the wren tool takes it.
Value = Union[SupportsIndex, float, str]

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

# What each variable takes: whole numbers up to a limit, kHz from a limit on, or one of some words.
# No delay makes a clock slower than 0.1211 kHz.
_WHOLE = {
    "SPIPORT": 0xFFFFFFFF,
    "SPI_DELAY": 0xFFFE,  # 0xFFFF stands for one that is not known
    "SPIMUL": 16,
    "SPICMDBITS": 0xFFFF,
    "SPICMDREADBITS": 0xFFFF,
    "SPICMDWRITEBITS": 0xFFFF,
}
_CLOCKS = {"SPICLOCK": 0.1211, "SPIMAXCLOCK": 1.0}
_WORDS = {"QUILLMODE": ("SPI", "JTAG")}
_SETTABLE = (*_WHOLE, *_CLOCKS, *_WORDS)


def _clock(value: Value, least: float, name: str) -> float:
    with contextlib.suppress(TypeError, ValueError, OverflowError):
        clock = float(value)
        if least <= clock < float("inf"):
            return clock
    refuse(f"{name} {value!r}", f"a number of kHz from {least} on")


def _meant(value: Value) -> Value:
    with contextlib.suppress(ValueError):
        return int(value, 0) if isinstance(value, str) else value
    return value


def setting(name: str, value: Value) -> tuple[str, str]:
    """A variable's name and value as the library takes them."""
    name = one_of(_SETTABLE, name, "variable")
    if name in _WORDS:
        return name, one_of(_WORDS[name], value, name)
    if name in _CLOCKS:
        return name, repr(_clock(value, _CLOCKS[name], name))
    return name, str(whole(_meant(value), 0, _WHOLE[name], f"{name} {value!r}"))


def defaults() -> dict[str, str]:
    """The variables that can be set, with their default texts."""
    records = ctypes.POINTER(VariableRecord)()
    count = ctypes.c_uint32()
    library().spifns_getvarlist(ctypes.byref(records), ctypes.byref(count))
    return {decoded(r.name): decoded(r.default) for r in records[: count.value]}


class Variables(Mapping[str, str]):
    """The variables of a chip as texts; names in any case.

    The mapping holds what can be read; QUILLMODE can only be set. What cannot be set, and a value
    that a variable does not take, is an ArgumentError.
    """

    def __init__(self, chip: Chip) -> None:
        self._chip = chip

    def __getitem__(self, name: str) -> str:
        if str(name).upper() not in _READABLE:
            raise KeyError(name)
        return self._chip._get(name)

    def __setitem__(self, name: str, value: Value) -> None:
        self._chip._set({name: value})

    def __iter__(self) -> Iterator[str]:
        return iter(_READABLE)

    def __len__(self) -> int:
        return len(_READABLE)

    def __repr__(self) -> str:
        return f"<wrenlink.Variables of {self._chip!r}>"


class Number(Generic[T]):
    """A variable as an attribute of a chip."""

    def __init__(self, name: str, parse: Callable[[str], T], doc: str) -> None:
        self._name = name
        self._parse = parse
        self.__doc__ = doc

    def __get__(self, chip: Chip | None, owner: Any) -> T:
        return cast(T, self) if chip is None else self._parse(chip._get(self._name))

    def __set__(self, chip: Chip, value: float) -> None:
        chip._set({self._name: value})


def hexadecimal(text: str) -> int:
    """A whole number, in decimal or behind 0x."""
    return int(text, 0)
