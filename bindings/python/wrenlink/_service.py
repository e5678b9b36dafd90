"""What a service of adapters does in the runtime directory."""
from __future__ import annotations

import sys

assert sys.platform != "win32", "adapters are sockets on Linux only"

import contextlib
import errno
import mmap
import os
import pathlib
import socket
import stat
import struct
from typing import TYPE_CHECKING

from ._lock import runtime_directory

if TYPE_CHECKING:
    from collections.abc import Iterator

MOST_ADAPTERS = 32
# More than any request or completion has.
MOST_BYTES = 1 << 17
# Seconds for which hosts wait for a completion.
PATIENCE = 1


def enter_adapters() -> str:
    """Makes the folder of the adapters' sockets the current one, and tells its path."""
    path = os.path.realpath(runtime_directory() / "adapters")
    os.chdir(path)
    return path


def present() -> list[str]:
    """The names of the adapters in the current folder, in the order of their port numbers."""
    names = [name for name in os.listdir() if stat.S_ISSOCK(os.lstat(name).st_mode)]
    return sorted(names, key=os.fsencode)[:MOST_ADAPTERS]


@contextlib.contextmanager
def listening(name: str) -> Iterator[socket.socket]:
    """An adapter's socket in the current folder, for those who may share objects."""
    with contextlib.ExitStack() as stack:
        server, probe = (
            stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)) for _ in "12"
        )
        if probe.connect_ex(name) == 0:
            raise OSError(errno.EADDRINUSE, f"another service offers {name}")
        # It appears when it works, in place of one that a killed service left behind.
        hidden = f"../.{name}.{os.getpid()}"
        server.setblocking(False)
        server.bind(hidden)
        shared = os.stat("../objects")
        with contextlib.suppress(PermissionError):
            os.chown(hidden, -1, shared.st_gid)
        os.chmod(hidden, shared.st_mode & 0o666)
        server.listen()
        os.rename(hidden, name)
        stack.callback(pathlib.Path(name).unlink, missing_ok=True)
        yield server


def told_id(name: str) -> int:
    """The id that an adapter tells; 0 when it tells none."""
    completion = b""
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as device:
        device.settimeout(PATIENCE)
        with contextlib.suppress(OSError):
            device.connect(name)
            device.send(struct.pack("<II", 0x220000, 6) + bytes.fromhex("03000600000700"))
            completion = device.recv(MOST_BYTES)
    return int.from_bytes(completion[6:], "big") if len(completion) == 10 else 0


def forget(adapter_id: int) -> None:
    """Marks unknown what hosts remember of an adapter. Whoever has its lock may do so at any time.

    It takes no lock on the files: that would keep a newcomer from starting them afresh.
    """
    for name, field in (("quilldelays", "H"), ("quillcmdbits", "I")):
        size = struct.calcsize(field)
        with contextlib.suppress(FileNotFoundError), contextlib.ExitStack() as stack:
            path = runtime_directory() / f"objects/kvs_shm_{name}{adapter_id}"
            file = os.open(path, os.O_RDWR | os.O_NOFOLLOW | os.O_CLOEXEC | os.O_NONBLOCK)
            stack.callback(os.close, file)
            status = os.fstat(file)
            if stat.S_ISREG(status.st_mode) and status.st_size == size:
                view = stack.enter_context(memoryview(stack.enter_context(mmap.mmap(file, size))))
                # Whole, as hosts write it, so that nobody sees a half of it.
                stack.enter_context(view.cast(field))[0] = (1 << 8 * size) - 1
