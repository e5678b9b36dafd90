"""Offers the adapters of another machine as adapters here, until it is ended. Linux only.

    python3 -m wrenlink.remote BENCH

starts `ssh BENCH python3 -m wrenlink.remote --serve`, or another command that gives a pair of pipes
to the far side, which lends its adapters. Here each becomes a socket in `adapters/`, behind which a
host's request is taken, carried over, and its completion brought back.

Over the pipes goes a line of JSON that names what is lent, and then messages in both directions:

    length, 32 bits | adapter, 32 bits | connection, 64 bits | so many bytes     (little-endian)

A connection is that of one host, and its number is never used again. The request goes there and the
completion comes back, both unchanged; a message without bytes says that the connection is closed.
Connection 0 is the link's own: what comes on it goes back at once and shows that both sides live.
"""
from __future__ import annotations

import sys

assert sys.platform != "win32", "wrenlink.remote runs on Linux only"

import argparse
import asyncio
import contextlib
import errno
import itertools
import json
import mmap
import os
import pathlib
import shlex
import signal
import socket
import stat
import struct
from typing import TYPE_CHECKING, Any

from ._lock import choose_runtime_directory, held, runtime_directory

if TYPE_CHECKING:
    from collections.abc import Callable, Coroutine, Iterable, Iterator

_HEAD = struct.Struct("<IIQ")
_GREETING = "wrenlink.remote 1"
# In seconds: between signs of life, until a side without any counts as lost, that a busy adapter is
# waited for, that hosts wait for a completion.
_BEAT, _SILENCE, _BUSY, _PATIENCE = 1, 10, 5, 1
_MOST_ADAPTERS = 32
# More than any request or completion has.
_MOST_BYTES = 1 << 17


class Link:
    """The messages between the two sides. What ends it is a ConnectionError of receive()."""

    def __init__(
        self, reader: asyncio.StreamReader, write: Callable[[bytes], None], beats: bool
    ) -> None:
        self._reader = reader
        self._write = write
        self._beats = beats
        self._clock = asyncio.get_running_loop().time
        self._heard = self._clock()
        self._answers: dict[int, asyncio.Future[bytes]] = {}
        self._watch()

    def _watch(self) -> None:
        if self._clock() > self._heard + _SILENCE:
            error = ConnectionError(f"no sign of life for {_SILENCE} seconds")
            return self._reader.set_exception(error)
        if self._beats:
            self.send(0)
        asyncio.get_running_loop().call_later(_BEAT, self._watch)

    def send(self, connection: int, adapter: int = 0, message: bytes = b"") -> None:
        self._write(_HEAD.pack(len(message), adapter, connection) + message)

    async def receive(self) -> tuple[int, int, bytes]:
        try:
            length, adapter, connection = _HEAD.unpack(await self._reader.readexactly(_HEAD.size))
            if length > _MOST_BYTES:
                raise ConnectionError("what comes is no message")
            message = await self._reader.readexactly(length)
        except asyncio.IncompleteReadError:
            raise ConnectionError("the connection is lost") from None
        self._heard = self._clock()
        return connection, adapter, message

    def ask(self, connection: int, adapter: int = 0, message: bytes = b"") -> asyncio.Future[bytes]:
        """Sends the first message on a connection; the first one that comes is the answer."""
        self._answers[connection] = answer = asyncio.get_running_loop().create_future()
        answer.add_done_callback(lambda _: self._answers.pop(connection))
        self.send(connection, adapter, message)
        return answer

    async def deliver(self) -> None:
        """Gives answers to those who wait; nobody does any more for one that comes too late."""
        while True:
            connection, _, message = await self.receive()
            if connection in self._answers:
                _settle(self._answers[connection], message)


def _settle(answer: asyncio.Future[bytes], message: bytes) -> None:
    if not answer.done():
        answer.set_result(message)


async def _cancel(tasks: Iterable[asyncio.Future[Any]]) -> None:
    tasks = list(tasks)
    for task in tasks:
        task.cancel()
    await asyncio.gather(*tasks, return_exceptions=True)


# ---- What a service of adapters does in the runtime directory; `adapters` is the current folder ----


def _present() -> list[str]:
    """The names of the adapters in the current folder, in the order of their port numbers."""
    names = [name for name in os.listdir() if stat.S_ISSOCK(os.lstat(name).st_mode)]
    return sorted(names, key=os.fsencode)[:_MOST_ADAPTERS]


@contextlib.contextmanager
def _listening(name: str) -> Iterator[socket.socket]:
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


def _told_id(name: str) -> int:
    """The id that an adapter tells; 0 when it tells none."""
    completion = b""
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as device:
        device.settimeout(_PATIENCE)
        with contextlib.suppress(OSError):
            device.connect(name)
            device.send(struct.pack("<II", 0x220000, 6) + bytes.fromhex("03000600000700"))
            completion = device.recv(_MOST_BYTES)
    return int.from_bytes(completion[6:], "big") if len(completion) == 10 else 0


def _forget(adapter_id: int) -> None:
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


# ---- The far side: lends ----


def _take(wanted: list[int], taken: contextlib.ExitStack) -> Iterator[tuple[str, int]]:
    """Takes adapters, all or those with wanted ids, until the stack ends; their names and ids."""
    os.chdir(runtime_directory() / "adapters")
    ids: set[int] = set()
    for port, name in enumerate(_present()):
        with contextlib.ExitStack() as mine:
            # What hosts agree on who want an adapter for long, and what every exchange takes.
            device = f"{runtime_directory()}/adapters/{name}"
            device = device.translate(str.maketrans('.\\/"*', "-----"))
            try:
                for lock in (f"usbspi_mutex_{port}", f"kvs_mutex_{device}"):
                    mine.enter_context(held(lock, _BUSY))
            except TimeoutError:
                print(f"{name} is busy, so it is not lent", file=sys.stderr)
                continue
            # Hosts take the port for an id that could be a key, or that is there already.
            told = _told_id(name)
            adapter_id = port if told < _MOST_ADAPTERS or told in ids else told
            ids.add(adapter_id)
            if not wanted or adapter_id in wanted:
                # Now, should this process be killed, and at the end.
                _forget(adapter_id)
                mine.callback(_forget, adapter_id)
                taken.push(mine.pop_all())
                yield name, adapter_id


async def _answer(link: Link, name: str, connection: int, request: bytes) -> None:
    """Carries one request to an adapter, and its completion or end back."""
    completion = b""
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as device:
        device.setblocking(False)
        with contextlib.suppress(OSError):
            device.connect(name)
            device.send(request)
            completion = await asyncio.get_running_loop().sock_recv(device, _MOST_BYTES)
    link.send(connection, 0, completion)


async def _lend(wanted: list[int]) -> None:
    """Lends adapters to the other end of standard input and output, until that closes them."""
    loop = asyncio.get_running_loop()
    reader = asyncio.StreamReader()
    source, _ = await loop.connect_read_pipe(
        lambda: asyncio.StreamReaderProtocol(reader), sys.stdin
    )
    pipe, _ = await loop.connect_write_pipe(asyncio.BaseProtocol, sys.stdout)
    calls: dict[int, asyncio.Task[None]] = {}
    with contextlib.ExitStack() as taken:
        taken.callback(source.close)
        taken.callback(pipe.close)
        lent = list(_take(wanted, taken))
        pipe.write(json.dumps({_GREETING: lent}).encode() + b"\n")
        link = Link(reader, pipe.write, beats=False)
        try:
            while True:
                connection, adapter, message = await link.receive()
                if connection == 0:
                    link.send(0)
                elif message and adapter < len(lent):
                    call = _answer(link, lent[adapter][0], connection, message)
                    calls[connection] = asyncio.create_task(call)
                elif connection in calls:
                    # Before the next request, so that the adapter drops this one first.
                    await _cancel([calls[connection]])
                calls = {number: call for number, call in calls.items() if not call.done()}
        except ConnectionError:
            pass  # the loan is over
        finally:
            await _cancel(calls.values())


# ---- This side: offers ----


async def _carry(link: Link, connection: int, adapter: int, host: socket.socket) -> None:
    """Carries a host's request over and its completion back, unless one of both gives up."""
    loop = asyncio.get_running_loop()
    with host, contextlib.suppress(OSError):
        request = await loop.sock_recv(host, _MOST_BYTES)
        if not request:
            return
        answer = link.ask(connection, adapter, request)
        # All that can come from the host now is its end.
        loop.add_reader(host, _settle, answer, b"")
        try:
            completion = await answer
        finally:
            loop.remove_reader(host)
        if completion:
            host.send(completion)
        else:
            link.send(connection)


async def _offer(
    link: Link, bench: str, lent: list[tuple[str, int]], hosts: set[asyncio.Task[None]]
) -> None:
    """Offers adapters, and has a task for each host that comes."""
    loop = asyncio.get_running_loop()
    connections = itertools.count(1)

    async def serve(adapter: int, server: socket.socket) -> None:
        while True:
            host, _ = await loop.sock_accept(server)
            task = asyncio.create_task(_carry(link, next(connections), adapter, host))
            hosts.add(task)
            task.add_done_callback(hosts.discard)

    start = loop.time()
    await link.ask(0)
    seconds = loop.time() - start
    ids = ", ".join(str(adapter_id) for _, adapter_id in lent)
    print(f"{bench} lends {ids}; a round trip takes {1000 * seconds:.1f} ms")
    if seconds > _PATIENCE:
        print("That is too long: hosts wait 1000 ms for an answer, so all calls will fail with 516.")
    for _, adapter_id in lent:
        # Hosts at the other side had it since those here did.
        _forget(adapter_id)
    with contextlib.ExitStack() as sockets:
        names = [f"{bench}-{name}".replace("/", "-") for name, _ in lent]
        here = [sockets.enter_context(_listening(name)) for name in names]
        print("ready", flush=True)
        await asyncio.gather(*itertools.starmap(serve, enumerate(here)))


async def _greeting(reader: asyncio.StreamReader) -> list[tuple[str, int]]:
    """The names and ids of what is lent, behind what a shell may say first."""
    lent: list[tuple[str, int]] = []
    with contextlib.suppress(ValueError):  # of a line that has no end
        while line := await reader.readline():
            try:
                lent = [(str(name), int(one)) for name, one in json.loads(line)[_GREETING]]
                break
            except (LookupError, TypeError, ValueError):
                print(line.decode(errors="replace"), end="", file=sys.stderr)
    if not lent:
        raise ConnectionError("the other side lends no adapter")
    return lent


async def _borrow(bench: str, command: list[str]) -> None:
    """Offers the adapters that a command lends, until the connection is lost."""
    pipe = asyncio.subprocess.PIPE
    far = await asyncio.create_subprocess_exec(*command, stdin=pipe, stdout=pipe)
    assert far.stdin is not None and far.stdout is not None
    hosts: set[asyncio.Task[None]] = set()
    tasks: list[asyncio.Future[None]] = []
    try:
        for folder in ("objects", "adapters"):
            os.makedirs(runtime_directory() / folder, exist_ok=True)
        os.chdir(runtime_directory() / "adapters")
        lent = await _greeting(far.stdout)
        link = Link(far.stdout, far.stdin.write, beats=True)
        works = (link.deliver(), _offer(link, bench, lent, hosts))
        tasks += map(asyncio.ensure_future, works)
        await asyncio.gather(*tasks)
    finally:
        # Hosts are cut off when they can no longer connect: what fails, fails for good.
        await _cancel(tasks)
        await _cancel(hosts)
        far.stdin.close()
        over = asyncio.gather(far.stdin.wait_closed(), far.wait(), return_exceptions=True)
        try:
            await asyncio.wait_for(over, _PATIENCE)
        except asyncio.TimeoutError:
            far.kill()
            await far.wait()


async def _until_signalled(work: Coroutine[Any, Any, None]) -> None:
    task = asyncio.ensure_future(work)
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        asyncio.get_running_loop().add_signal_handler(number, task.cancel)
    with contextlib.suppress(asyncio.CancelledError):
        await task


def main() -> None:
    parser = argparse.ArgumentParser(
        prog="python3 -m wrenlink.remote",
        description="Offers the adapters of another machine as adapters here, until it is ended.",
    )
    add = parser.add_argument
    add("bench", nargs="?", metavar="BENCH", help="the machine, as ssh knows it")
    add("--id", type=int, action="append", default=[], help="lend this adapter only; repeatable")
    add("--command", help="start this instead of ssh; it lends over its pipes")
    add("--serve", action="store_true", help="lend over standard input and output")
    options = parser.parse_args()
    if options.serve == (options.bench is not None):
        parser.error("give either BENCH or --serve")
    modes = [os.fstat(file).st_mode for file in (0, 1)]
    if options.serve and not all(stat.S_ISFIFO(mode) or stat.S_ISSOCK(mode) for mode in modes):
        parser.error("--serve works over pipes: ssh gives them, or another --command")
    ids = [f"--id={one}" for one in options.id]
    ssh = ["ssh", "-T", "--", options.bench, "python3", "-m", "wrenlink.remote", "--serve"]
    command = [*(shlex.split(options.command) if options.command else ssh), *ids]
    choose_runtime_directory()
    work = _lend(options.id) if options.serve else _borrow(options.bench, command)
    try:
        asyncio.run(_until_signalled(work))
    except OSError as error:
        sys.exit(f"wrenlink.remote: {error}")


if __name__ == "__main__":
    main()
