"""Adapters of another machine, here another runtime directory, while all of it breaks."""
import contextlib
import fcntl
import os
import pathlib
import signal
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

import wrenlink
from simulated import Simulated, quillsim

REMOTE = [sys.executable, "-m", "wrenlink.remote"]
PIPE = [sys.executable, str(pathlib.Path(__file__).with_name("pipe.py"))]


def children(process):
    return pathlib.Path(f"/proc/{process}/task/{process}/children").read_text().split()


class Remote(Simulated):
    def setUp(self):
        super().setUp()
        self.far, self.near = str(self.folder / "far"), str(self.folder / "near")
        self.lend = ["env", f"WRENLINK_RUNTIME_DIR={self.far}", *REMOTE, "--serve"]
        self.go(self.far)
        self.start()
        self.control("poke 0 0x100 1 2 3 4")
        self.go(self.near)

    def go(self, folder):
        os.environ["WRENLINK_RUNTIME_DIR"] = folder

    def control(self, line):
        return quillsim("--runtime-dir", self.far, "--control", line).stdout

    @contextlib.contextmanager
    def borrowed(self, command, *options):
        """The process that offers what a command lends, and all that it said until it was ready."""
        with subprocess.Popen([*REMOTE, "bench", "--command", " ".join(command), *options],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as remote:
            said = []
            try:
                while line := remote.stdout.readline():
                    said.append(line)
                    if line == "ready\n":
                        break
                yield remote, "".join(said)
            finally:
                remote.terminate()

    def locked(self, adapter):
        lock, = pathlib.Path(self.far, "objects").glob(f"kvs_mutex_*-{adapter}")
        with lock.open() as file:
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                return True
        return False

    def home(self, program):
        """A host where the adapters are; it is there when it says so."""
        host = subprocess.Popen([sys.executable, "-c", "import wrenlink\n" + program], text=True,
                                env={**os.environ, "WRENLINK_RUNTIME_DIR": self.far},
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(host.kill)
        return host

    def test_a_lent_adapter_is_busy_at_home_and_forgotten_on_both_sides(self):
        holder = self.home("with wrenlink.open(100) as chip:\n"
                           " chip.delay = 7; print(flush=True); input()\n"
                           " print(chip.delay); chip.delay = 8")
        holder.stdout.readline()
        with self.borrowed([*self.lend, "--id", "100"]) as (_, said):
            self.assertRegex(said, "^bench lends 100; .* ms\nready\n$")
            self.assertEqual([port[1:] for port in wrenlink.ports()], [(100, "USB SPI (100)", (1, 9))])
            waiting = self.home("with wrenlink.open(100) as chip: print(chip.read(0x100, 4)[3])")
            chip = wrenlink.open(100)
            self.addCleanup(chip.close)
            chip.delay = 9
            for word in range(50):
                chip.write(0x103, [word])
                self.assertEqual(chip.read(0x100, 4).tolist(), [1, 2, 3, word])
            self.assertEqual([self.locked(adapter) for adapter in ("quill0", "quill1")], [True, False])
        self.assertEqual(waiting.communicate(timeout=20)[0], "49\n")
        self.assertEqual(holder.communicate("\n", timeout=20)[0], "9\n")
        self.assertEqual(os.listdir(self.near + "/adapters"), [])
        with self.borrowed(self.lend):
            self.assertEqual(chip.delay, 8)

    def test_what_adapters_do_passes_unchanged_and_nothing_comes_late(self):
        # On a way of 60 ms, the completion that takes 980 ms and the host's giving up cross.
        with self.borrowed([*PIPE, "60", "-1", "-1", *self.lend]), wrenlink.open(100) as chip:
            for fault, error, code in [
                ("unplug 0", "reset", 516), ("plug 0", None, 0), ("fault 0 twice", None, 0),
                ("fault 0 delay 980", "timed out", 516), ("fault 0 silence", "timed out", 516),
                ("fault 0 refuse 5", "Input/output error", 516), ("fault 0 close", "reset", 516),
                ("fault 0 badstatus 0x0101", "Read failed", 517),
            ]:
                with self.subTest(fault):
                    self.control(fault)
                    if error:
                        with self.assertRaisesRegex(wrenlink.Error, error) as raised:
                            chip.read(0x100, 1)
                        self.assertEqual(raised.exception.code, code)
                    if fault != "unplug 0":
                        self.assertEqual([chip.read(0x101 + at, 1)[0] for at in range(3)], [2, 3, 4])
            self.assertIn(" open=0 ", self.control("count 0"))

    def test_whoever_dies_is_a_pulled_cable(self):
        for whose, number in [("near", signal.SIGKILL), ("near", signal.SIGTERM),
                              ("pipe", signal.SIGKILL), ("far", signal.SIGKILL),
                              ("far", signal.SIGTERM)]:
            with self.subTest(whose=whose, signal=number), ThreadPoolExecutor() as threads, \
                    self.borrowed([*PIPE, "0", "-1", "-1", *self.lend]) as (remote, _), \
                    wrenlink.open(100) as chip:
                self.control("log 0 clear")
                self.control("fault 0 silence")
                call = threads.submit(chip.read, 0x100, 1)
                while "read(0x0100" not in self.control("log 0"):
                    self.assertFalse(call.done())
                pipe, = children(remote.pid)
                os.kill({"near": remote.pid, "pipe": int(pipe),
                         "far": int(children(pipe)[0])}[whose], number)
                self.assertEqual(call.exception().code, 516)
                remote.wait(20)
                self.assertRaises(wrenlink.OpenError, chip.read, 0x100, 1)
                chip.close()
                self.assertRaises(wrenlink.NoAdapterError, wrenlink.open, 100)
                self.control("clear 0")
                home = self.home("with wrenlink.open(100) as chip: print(chip.read(0x100, 1)[0])")
                self.assertEqual(home.communicate(timeout=20)[0], "1\n")

    def test_a_cut_anywhere_is_a_failure(self):
        # In the greeting, in the first echo, and in heads and bodies of what an opening carries.
        for up, down in [(-1, 20), (8, -1), (45, -1), (-1, 64), (-1, 79), (100, -1), (130, -1),
                         (-1, 139), (-1, 164), (-1, 199)]:
            with self.subTest(up=up, down=down), \
                    self.borrowed([*PIPE, "0", str(up), str(down), *self.lend]) as (remote, said):
                with self.assertRaises(wrenlink.Error) as raised, wrenlink.open(100) as chip:
                    for _ in range(20):
                        self.assertEqual(chip.read(0x100, 4).tolist(), [1, 2, 3, 4])
                self.assertIn(raised.exception.code, (514, 515, 516))
                self.assertEqual(remote.wait(20), 1)

    def test_the_other_side_may_be_slow_or_no_side_at_all(self):
        with self.borrowed([*PIPE, "550", "-1", "-1", *self.lend]) as (_, said):
            self.assertRegex(said, r"1\d\d\d\.\d ms\nThat is too long: .*\nready\n$")
            self.assertRaises(wrenlink.NoAdapterError, wrenlink.open, 100)
        for command, reason in [
            (["echo", "welcome"], "^welcome\n.*the other side lends no adapter"),
            (["echo", """'{"wrenlink.remote 1": [[7]]}'"""], "lends no adapter\n$"),
            (["printf", "%099999d"], "^wrenlink.remote: the other side lends no adapter"),
            (["/no/such"], "No such file"),
            ([*self.lend, "--id", "7"], "the other side lends no adapter"),
        ]:
            with self.subTest(command), self.borrowed(command) as (remote, said):
                self.assertRegex(said, reason)
                self.assertEqual(remote.wait(20), 1)
