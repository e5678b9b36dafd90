"""Locks that all processes of the machine share by their names.

On Windows they are named mutexes, elsewhere locks of whole files in the folder `objects` of the
runtime directory. The system frees one when its holder ends, however it ends.
"""
from __future__ import annotations

import contextlib
import errno
import os
import sys
import time
from pathlib import Path
from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from collections.abc import Iterator

# Locks are asked for again and again, ever less often.
_FIRST_PAUSE, _LONGEST_PAUSE = 0.0001, 0.01


_runtime_directory = ""


def choose_runtime_directory() -> None:
    """Takes from the environment, as the library does, where hosts and adapters meet on Linux."""
    global _runtime_directory
    named = os.environ.get("WRENLINK_RUNTIME_DIR") or "/run/wrenlink"
    _runtime_directory = os.path.realpath(named) if os.path.isabs(named) else ""


def runtime_directory() -> Path:
    """The one that was chosen last. OSError when it cannot be one, as for hosts."""
    if not _runtime_directory:
        raise FileNotFoundError(errno.ENOENT, "it has to be absolute", "WRENLINK_RUNTIME_DIR")
    return Path(_runtime_directory)


def why_no_adapters() -> str:
    """What is to be done where no adapter is offered at all; otherwise nothing."""
    if sys.platform == "win32":
        return ""
    try:
        folder = runtime_directory() / "adapters"
        return "" if os.listdir(folder) else f"; '{folder}' offers none: plug one in"
    except OSError as error:
        denied = isinstance(error, PermissionError)
        remedy = "join the group that may use it" if denied else "start the service of adapters"
        return f"; cannot look into '{error.filename}': {error.strerror}; {remedy}"


if sys.platform == "win32":
    import ctypes
    from ctypes import wintypes

    _kernel = ctypes.WinDLL("kernel32", use_last_error=True)
    _kernel.CreateMutexW.restype = wintypes.HANDLE
    _kernel.CreateMutexW.argtypes = [wintypes.LPVOID, wintypes.BOOL, wintypes.LPCWSTR]
    _kernel.WaitForSingleObject.argtypes = [wintypes.HANDLE, wintypes.DWORD]
    _kernel.ReleaseMutex.argtypes = _kernel.CloseHandle.argtypes = [wintypes.HANDLE]
    _TIMED_OUT, _FAILED = 0x102, 0xFFFFFFFF

    def _open(name: str) -> int:
        handle = _kernel.CreateMutexW(None, False, name)
        if handle is None:
            raise ctypes.WinError(ctypes.get_last_error())
        return int(handle)

    def _try_once(handle: int) -> bool:
        result = _kernel.WaitForSingleObject(handle, 0)
        if result == _FAILED:
            raise ctypes.WinError(ctypes.get_last_error())
        # Also when the holder before has died.
        return bool(result != _TIMED_OUT)

    def _free(handle: int) -> None:
        _kernel.ReleaseMutex(handle)

    def _close(handle: int) -> None:
        _kernel.CloseHandle(handle)

else:
    import fcntl

    # Opening must not wait (for a pipe), follow a link or reach children. Who may read a file may
    # lock it.
    _FLAGS = os.O_RDONLY | os.O_NOFOLLOW | os.O_CLOEXEC | os.O_NONBLOCK | os.O_NOCTTY
    _FOLDER_FLAGS = os.O_PATH | os.O_DIRECTORY | os.O_NOFOLLOW | os.O_CLOEXEC

    def _file_name(name: str) -> bytes:
        """The name, or as much of it as a file's name can hold, and a digest of it (FNV-1a)."""
        whole = os.fsencode(name)
        if len(whole) <= 255:
            return whole
        digest = 0xCBF29CE484222325
        for byte in whole:
            digest = (digest ^ byte) * 0x100000001B3 % (1 << 64)
        return whole[:200] + b"~%016x" % digest

    def _open(name: str) -> int:
        file = _file_name(name)
        folder = os.open(runtime_directory() / "objects", _FOLDER_FLAGS)
        try:
            while True:
                try:
                    return os.open(file, _FLAGS, dir_fd=folder)
                except FileNotFoundError:
                    # With the access that the folder grants, whatever this process masks out.
                    mode = os.fstat(folder).st_mode & 0o666
                try:
                    made = os.open(file, _FLAGS | os.O_CREAT | os.O_EXCL, mode, dir_fd=folder)
                except FileExistsError:
                    continue
                os.fchmod(made, mode)
                return made
        finally:
            os.close(folder)

    def _try_once(handle: int) -> bool:
        try:
            fcntl.flock(handle, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            return False
        return True

    def _free(handle: int) -> None:
        # Closing alone would not do: a child made by fork may share the file.
        fcntl.flock(handle, fcntl.LOCK_UN)

    def _close(handle: int) -> None:
        os.close(handle)


@contextlib.contextmanager
def held(name: str, timeout: float | None) -> Iterator[None]:
    """Holds a lock for a with block.

    Waits for it at most timeout seconds, None meaning without a limit, and raises TimeoutError when
    another holds it until then. Raises OSError when what processes share cannot be reached.
    """
    end = None if timeout is None else time.monotonic() + timeout
    handle = _open(name)
    try:
        pause = _FIRST_PAUSE
        while not _try_once(handle):
            if end is not None and time.monotonic() >= end:
                raise TimeoutError(f"another holds {name}")
            time.sleep(pause if end is None else min(pause, max(0, end - time.monotonic())))
            pause = min(2 * pause, _LONGEST_PAUSE)
        try:
            yield
        finally:
            _free(handle)
    finally:
        _close(handle)
