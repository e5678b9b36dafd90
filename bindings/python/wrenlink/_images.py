"""Image files: words of chip memory at their addresses, in the formats of the wren tool."""
from __future__ import annotations

import re
import sys
from array import array
from pathlib import Path
from typing import TYPE_CHECKING, Union

from ._errors import MEMORY_WORDS, ArgumentError, address_of, count_from, one_of, refuse
from ._sequence import view_of

if TYPE_CHECKING:
    import os
    from collections.abc import Iterable, Iterator

    from ._sequence import Words

    PathLike = Union[str, os.PathLike[str]]
    # Words that follow each other, behind the address of the first one.
    Pieces = list[tuple[int, array[int]]]

_SUFFIXES = {"RAW": (".bin", ".raw"), "HEX": (".hex", ".ihex", ".ihx"), "TEXT": (".txt",)}


def load_image(file: PathLike, address: int | None = None, format: str | None = None) -> Pieces:
    """Reads an image file: a list of pairs, each an address and the array of words from there on.

        for piece in wrenlink.load_image("chip.hex"):
            chip.write(*piece)

    format is "raw" (bytes, the low one of each word first), "hex" (Intel HEX, of bytes) or "text"
    (lines like "0100: 0001 beef"); without it the suffix decides: .bin and .raw, .hex, .ihex and
    .ihx, or .txt. A raw file begins at address, or at 0; the others have addresses of their own.
    """
    kind = _kind_of(file, format)
    if kind != "RAW" and address is not None:
        refuse(f"an address for {file}, which has its own,", "none")
    contents = Path(file).read_bytes()
    image = _Bytes()
    where = str(file)
    try:
        if kind == "RAW":
            image.put(2 * address_of(address or 0), contents)
        else:
            take = image.take_record if kind == "HEX" else image.take_line
            for number, line in enumerate(contents.decode("latin-1").splitlines(), 1):
                where = f"{file}, line {number}"
                take(line.strip())
        where = str(file)
        return image.pieces(is_whole=kind != "HEX" or image.ended)
    except (ValueError, OverflowError) as error:
        raise ArgumentError(1, f"{where}: {error}") from None


def save_image(
    file: PathLike, pieces: Iterable[tuple[int, Words]], format: str | None = None
) -> None:
    """Writes an image file of pairs, each an address and words, as load_image() reads it.

        wrenlink.save_image("chip.bin", [(0, chip.read(0, 65536))])

    A raw file holds one pair, without its address.
    """
    kind = _kind_of(file, format)
    checked = [(address_of(address), view_of(words)) for address, words in pieces]
    for address, view in checked:
        count_from(address, len(view))
    if kind == "RAW":
        if len(checked) != 1:
            refuse(f"{len(checked)} pieces in a raw file", "one")
        contents = _little(checked[0][1])
    else:
        lines = _records(checked) if kind == "HEX" else _lines(checked)
        contents = "".join(line + "\n" for line in lines).encode()
    Path(file).write_bytes(contents)


def _kind_of(file: PathLike, format: str | None) -> str:
    if format is not None:
        return one_of(_SUFFIXES, format, "format")
    suffix = Path(file).suffix.lower()
    for kind, suffixes in _SUFFIXES.items():
        if suffix in suffixes:
            return kind
    refuse(f"{file} without a format", "format='raw', 'hex' or 'text', or a suffix like .bin")


class _Bytes:
    """The bytes of the chip's memory, two for each word, as a file fills them."""

    def __init__(self) -> None:
        self.ended = False
        self._held: dict[int, int] = {}
        self._base = 0

    def put(self, at: int, data: bytes) -> None:
        if at + len(data) > 2 * MEMORY_WORDS:
            raise ValueError("it goes beyond the last word, 0xffff")
        for place, byte in enumerate(data, at):
            if place in self._held:
                raise ValueError(f"the word at {place // 2:#06x} is there twice")
            self._held[place] = byte

    def take_record(self, line: str) -> None:
        """Takes a record of Intel HEX: ':', count, address, type, data, a sum that makes 0."""
        if not line:
            return
        record = bytes.fromhex(line[1:])
        good = line[0] == ":" and len(record) >= 5 and len(record) == 5 + record[0]
        if self.ended or not good or sum(record) % 256:
            raise ValueError("no record of Intel HEX, or a damaged one")
        kind, data = record[3], record[4:-1]
        if kind == 0:
            self.put(self._base + int.from_bytes(record[1:3], "big"), data)
        elif kind in (2, 4):
            self._base = int.from_bytes(data, "big") << (4 if kind == 2 else 16)
        elif kind == 1:
            self.ended = True
        elif kind not in (3, 5):
            raise ValueError(f"no record type {kind:02x}")

    def take_line(self, line: str) -> None:
        """Takes a line of text: an address and words behind ':', then perhaps a comment."""
        line = re.split("[#|]", line)[0]
        if line.strip():
            start, _, words = line.partition(":")
            self.put(2 * int(start, 16), _little([int(word, 16) for word in words.split()]))

    def pieces(self, is_whole: bool) -> Pieces:
        if not is_whole:
            raise ValueError("it has no end record, so it may be cut off")
        if not self._held:
            raise ValueError("it holds no words")
        found: Pieces = []
        for at in sorted(self._held):
            if at ^ 1 not in self._held:
                raise ValueError(f"it has one byte alone of the word at {at // 2:#06x}")
            if at % 2:
                continue
            if not found or found[-1][0] + len(found[-1][1]) != at // 2:
                found.append((at // 2, array("H")))
            found[-1][1].append(self._held[at] | self._held[at + 1] << 8)
        return found


def _little(words: Iterable[int]) -> bytes:
    """Words as bytes, the low one of each first."""
    copy = array("H", words)
    if sys.byteorder == "big":
        copy.byteswap()
    return copy.tobytes()


def _rows(pieces: list[tuple[int, memoryview]]) -> Iterator[tuple[int, memoryview]]:
    """The pieces in rows of up to eight words, none of which goes over the middle of the memory:
    there Intel HEX has a new base."""
    for address, view in pieces:
        done = 0
        while done < len(view):
            at = address + done
            size = min(8, 0x8000 - at % 0x8000)
            yield at, view[done : done + size]
            done += size


def _lines(pieces: list[tuple[int, memoryview]]) -> Iterator[str]:
    for address, row in _rows(pieces):
        yield f"{address:04x}: " + " ".join(f"{word:04x}" for word in row)


def _records(pieces: list[tuple[int, memoryview]]) -> Iterator[str]:
    def record(at: int, kind: int, data: bytes) -> str:
        body = bytes([len(data), at >> 8, at & 0xFF, kind]) + data
        return f":{body.hex()}{-sum(body) & 0xFF:02x}".upper()

    base = 0
    for address, row in _rows(pieces):
        if address >> 15 != base:
            base = address >> 15
            yield record(0, 4, base.to_bytes(2, "big"))
        yield record(2 * address & 0xFFFF, 0, _little(row))
    yield record(0, 1, b"")
