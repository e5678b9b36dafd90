"""Finds the wrenlink library, loads it once, and calls its functions."""
from __future__ import annotations

import ctypes
import ctypes.util
import functools
import logging
import os
import sys
from pathlib import Path
from typing import TYPE_CHECKING, Any, NamedTuple

from ._errors import Error, error_of

if TYPE_CHECKING:
    from collections.abc import Iterator

# Debug text of the chips.
logger = logging.getLogger("wrenlink")

NO_STREAM = 0x7FFFFFFF
_ON_WINDOWS = sys.platform == "win32"
# Error texts begin with the system's own words, which on Windows have the encoding of its locale.
_ENCODING = "mbcs" if _ON_WINDOWS else "utf-8"
_FILES = ("wrenlink.dll",) if _ON_WINDOWS else ("libwrenlink.so.1", "libwrenlink.so")


class Memory(ctypes.Structure):
    """What a read or a write says."""

    _fields_ = [
        ("reserved0", ctypes.c_uint32),
        ("address", ctypes.c_uint32),
        ("length", ctypes.c_uint32),
        ("reserved1", ctypes.c_uint32),
        ("data", ctypes.c_void_p),
    ]


class Variable(ctypes.Structure):
    """What a setting says."""

    _fields_ = [
        ("var", ctypes.c_char_p),
        ("value", ctypes.c_char_p),
        ("reserved0", ctypes.c_void_p),
    ]


class _Details(ctypes.Union):
    _fields_ = [("memory", Memory), ("variable", Variable)]


class Action(ctypes.Structure):
    """One element of a sequence."""

    READ, WRITE, SET = 0, 1, 2
    _fields_ = [("type", ctypes.c_uint32), ("reserved", ctypes.c_uint32), ("u", _Details)]


class VariableRecord(ctypes.Structure):
    """One record of the library's table of variables."""

    _fields_ = [
        ("name", ctypes.c_char_p),
        ("default", ctypes.c_char_p),
        ("flag", ctypes.c_uint64),
    ]


PortCallback = ctypes.CFUNCTYPE(None, ctypes.c_uint32, ctypes.c_char_p, ctypes.c_void_p)
DebugCallback = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)

_Words = ctypes.POINTER(ctypes.c_uint16)
_Stream = ctypes.c_uint32

class _Function(NamedTuple):
    """A function that the package calls."""

    result: Any
    arguments: list[Any]
    failure: int | None = None  # the result that says so


_FUNCTIONS = {
    "spifns_get_version": _Function(ctypes.c_uint32, []),
    "spifns_clear_last_error": _Function(None, []),
    "spifns_get_last_error32": _Function(
        ctypes.c_int, [ctypes.POINTER(ctypes.c_uint32), ctypes.POINTER(ctypes.c_char_p)]
    ),
    "spifns_enumerate_ports": _Function(None, [PortCallback, ctypes.c_void_p]),
    "spifns_getvarlist": _Function(
        None, [ctypes.POINTER(ctypes.POINTER(VariableRecord)), ctypes.POINTER(ctypes.c_uint32)]
    ),
    "spifns_stream_init": _Function(ctypes.c_int, [ctypes.POINTER(_Stream)]),
    "spifns_count_streams": _Function(ctypes.c_uint32, []),
    "spifns_stream_close": _Function(None, [_Stream]),
    "spifns_stream_set_debug_callback": _Function(None, [_Stream, DebugCallback, ctypes.c_void_p]),
    "spifns_stream_sequence": _Function(
        ctypes.c_int, [_Stream, ctypes.POINTER(Action), ctypes.c_uint32], 1
    ),
    "spifns_stream_getvar": _Function(ctypes.c_char_p, [_Stream, ctypes.c_char_p]),
    "spifns_stream_get_device_id": _Function(
        ctypes.c_int, [_Stream, ctypes.c_char_p, ctypes.c_size_t], 1
    ),
    "spifns_stream_command": _Function(ctypes.c_char_p, [_Stream, ctypes.c_char_p]),
    "spifns_stream_marigold_xap_stopped": _Function(ctypes.c_int, [_Stream], -1),
    "spifns_stream_mgcmd_init": _Function(
        ctypes.c_int, [_Stream, ctypes.c_uint16, ctypes.c_uint16], 1
    ),
    "spifns_stream_mgcmd_cmd": _Function(
        ctypes.c_int, [_Stream, _Words, ctypes.c_uint16, ctypes.c_uint32], 1
    ),
}


class LibraryError(ImportError):
    """The wrenlink library cannot be found, or is not one that this package can use."""


def _candidates() -> Iterator[str]:
    """Names to load the library by, the first that can be loaded counts."""
    named = os.environ.get("WRENLINK_LIBRARY")
    if named:
        yield named
        return
    for file in _FILES:
        beside = Path(__file__).resolve().parent / file
        if beside.exists():
            yield str(beside)
    yield from _FILES
    # Python does not look into the folders of PATH for a DLL.
    on_path = ctypes.util.find_library("wrenlink") if _ON_WINDOWS else None
    if on_path:
        yield on_path


def _open() -> ctypes.CDLL:
    reasons = []
    for name in _candidates():
        try:
            return ctypes.CDLL(name)
        except OSError as reason:
            reasons.append(f"{name}: {reason}")
    raise LibraryError(
        "cannot load the wrenlink library; install it, or let WRENLINK_LIBRARY name its file ("
        + "; ".join(reasons) + ")"
    )


@functools.lru_cache(maxsize=None)
def library() -> ctypes.CDLL:
    """The loaded library, its functions declared. Raises LibraryError."""
    loaded = _open()
    for name, facts in _FUNCTIONS.items():
        try:
            function = getattr(loaded, name)
        except AttributeError:
            raise LibraryError(f"{loaded._name} has no function {name}") from None
        function.restype = facts.result
        function.argtypes = facts.arguments
    version = loaded.spifns_get_version()
    if not 0x104 <= version < 0x200:
        raise LibraryError(f"{loaded._name} has interface {version:#x}, not 0x104 or a later 0x1xx")
    return loaded


def encoded(text: str) -> bytes:
    """Text as the library takes it."""
    return text.encode(_ENCODING)


def decoded(text: bytes | None) -> str:
    """Text as the library gives it."""
    try:
        return (text or b"").decode()
    except UnicodeDecodeError:
        return (text or b"").decode(_ENCODING, "replace")


def last_error() -> Error | None:
    """What the library left as this thread's last error, if anything."""
    address = ctypes.c_uint32()
    text = ctypes.c_char_p()
    code = library().spifns_get_last_error32(ctypes.byref(address), ctypes.byref(text))
    found = decoded(text.value)
    return error_of(code, found, address.value) if code or found else None


def call(name: str, *arguments: object) -> Any:
    """Calls a function and returns its result; raises the error that it left.

    Some functions report a failure as their last error alone, and some, without an adapter, by
    their result alone.
    """
    function = getattr(library(), name)
    failure = _FUNCTIONS[name].failure
    library().spifns_clear_last_error()
    result = function(*arguments)
    error = last_error()
    if error is None and failure is not None and result == failure:
        error = error_of(0, "", 0)
    if error is not None:
        raise error
    return result
