"""The Python package, as its users call it, against the simulator."""
import ctypes
import doctest
import fcntl
import gc
import math
import os
import pathlib
import shutil
import subprocess
import sys
import warnings
from array import array
from concurrent.futures import ThreadPoolExecutor

import numpy
import wrenlink
from simulated import Simulated, control, wren

PACKAGE = pathlib.Path(wrenlink.__file__).parents[1]


class Package(Simulated):
    def setUp(self):
        super().setUp()
        self.start()
        self.chip = self.opened()

    def opened(self, **settings):
        chip = wrenlink.open(**settings)
        self.addCleanup(chip.close)
        return chip

    def test_the_examples_of_its_documentation_run(self):
        os.chdir(self.folder)
        outcome = doctest.testfile(str(PACKAGE / "README.md"), module_relative=False)
        self.assertTrue(outcome.failed == 0 and outcome.attempted > 20)

    def test_words_of_every_kind_arrive(self):
        grid = numpy.arange(12, dtype=numpy.uint16).reshape(3, 4)
        for words, arrived in [
            (range(0xFFFF), list(range(0xFFFF))),
            ((n for n in (3, 0xFFFF)), [3, 0xFFFF]),
            (memoryview(b"\1\0\2\0").cast("H"), [1, 2]),
            ((ctypes.c_uint16 * 2)(7, 8), [7, 8]),
            (grid, list(range(12))),
            (grid[::2, ::2], [0, 2, 8, 10]),
            (numpy.array([11, 12], ">u2"), [11, 12]),
            ([], []),
        ]:
            with self.subTest(arrived[:4]):
                self.chip.write(0, words)
                self.assertEqual(self.chip.read(0, len(arrived)).tolist(), arrived)

    def test_what_is_not_acceptable_is_named_and_not_sent(self):
        chip, name = self.chip, self.chip.variables
        chip.write(0x100, [42])
        before = control("count 0")
        for call, values in [
            (lambda words: chip.write(0x100, words),
             ["a", [1.5], [0x10000], [-1], b"\1\0", 7, numpy.array([0.5]), numpy.zeros((2, 2), int),
              numpy.array([-1], numpy.int16)]),
            (lambda buffer: chip.read_into(0x100, buffer),
             [[0], bytes(4), bytearray(4), numpy.zeros(4, numpy.int16),
              numpy.zeros(4, numpy.uint16)[::2], memoryview(b"\1\0").cast("H")]),
            (lambda address: chip.read(address, 1), [-1, 0x10000, 1.5, None, "1"]),
            (lambda count: chip.fill(0xFFF0, count, 0), [-1, 17, 1.5, "1"]),
            (lambda word: chip.fill(0, 1, word), [-1, 0x10000, 1.5]),
            (lambda clock: setattr(chip, "clock", clock), ["abc", 0, -5, 0.12, math.nan, math.inf]),
            (lambda clock: setattr(chip, "max_clock", clock), ["", 0.9, None]),
            (lambda delay: setattr(chip, "delay", delay), ["x", -1, 65535, 1.0]),
            (lambda mux: setattr(chip, "mux", mux), ["x", -1, 17]),
            (lambda bits: name.__setitem__("SPICMDBITS", bits), ["0x", 70000]),
            (lambda variable: name.__setitem__(variable, 1), ["MUTEXNAME", "NONE", 7]),
            (lambda port: wrenlink.open(port), ["abc", "0100", -1, 1 << 32]),
            (lambda mode: wrenlink.open(mode=mode), ["I2C", 1]),
            (chip.command, ["FOO", None]),
            (lambda word: chip.mgcmd_init(0, word), [-1, 0x10000]),
            (chip.mgcmd, [range(509)]),
            (lambda timeout: chip.exclusive(timeout).__enter__(), [-1, math.nan, "1"]),
        ]:
            for value in values:
                with self.subTest(value=value), self.assertRaises(ValueError) as raised:
                    call(value)
                self.assertIs(type(raised.exception), wrenlink.ArgumentError)
                self.assertRegex(raised.exception.text, "is not acceptable; .+ would do")
        chip.close()
        self.assertRaises(wrenlink.ArgumentError, wrenlink.open, clock="fast")
        self.assertEqual(control("count 0").split()[0], before.split()[0])

    def test_the_whole_memory_is_read_and_progress_told(self):
        told = []
        self.chip.write(0, range(0x10000), lambda *words: told.append(words))
        self.assertEqual(told, [(min(4032 * n, 0x10000), 0x10000) for n in range(1, 18)])
        sequence = wrenlink.Sequence()
        for words in (self.chip.read(0, 0x10000), sequence.read(0, 0x10000)):
            self.chip.submit(sequence)
            self.assertEqual(words, array("H", range(0x10000)))
        with self.assertRaises(wrenlink.VerifyError) as raised:
            self.chip.verify(0xFFF0, [0xFFF0, 1, 0xFFF2, 2])
        self.assertEqual(raised.exception.differences, [(0xFFF1, 1, 0xFFF1), (0xFFF3, 2, 0xFFF3)])

    def test_one_user_at_a_time(self):
        other = self.opened(port="100")
        os.environ["WRENLINK_RUNTIME_DIR"] = "/elsewhere"  # streams keep the folder that they have
        with self.opened(port=200).exclusive(0), self.chip.exclusive(0), self.chip.exclusive(0):
            self.assertRaises(wrenlink.BusyError, other.exclusive(0.05).__enter__)
            with ThreadPoolExecutor() as threads:
                self.assertIsInstance(threads.submit(self.chip.exclusive(0).__enter__).exception(),
                                      wrenlink.BusyError)
        lock = self.folder / "objects/usbspi_mutex_0"
        self.assertEqual(lock.stat().st_mode & 0o666, lock.parent.stat().st_mode & 0o666)
        with lock.open() as holder:
            fcntl.flock(holder, fcntl.LOCK_EX)
            self.assertRaises(wrenlink.BusyError, other.exclusive(0).__enter__)
        with other.exclusive():
            pass
        lock.unlink()
        lock.symlink_to("/dev/null")
        self.assertRaises(wrenlink.SharedMemoryError, other.exclusive().__enter__)

    def test_image_files_are_those_of_wren(self):
        self.chip.write(0x7FF8, range(100, 125))
        pieces = [(0x7FF8, self.chip.read(0x7FF8, 25))]
        for suffix in ("bin", "hex", "txt"):
            with self.subTest(suffix):
                theirs, ours = (self.folder / f"{name}.{suffix}" for name in ("theirs", "ours"))
                wren("read", "0x7ff8", "25", "-o", theirs, "--port", "0")
                wrenlink.save_image(ours, pieces)
                self.assertEqual(ours.read_bytes(), theirs.read_bytes())
                address = 0x7FF8 if suffix == "bin" else None
                self.assertEqual(wrenlink.load_image(theirs, address), pieces)
        for name, contents, reason in [
            ("a.bin", b"123", "one byte alone"), ("a.bin", b"", "no words"),
            ("a.elf", b"", "without a format"),
            ("a.hex", b":0100000041BE\n:00000001FF", "one byte alone"),
            ("a.hex", b":020000004142", "line 1: .*damaged"), ("a.hex", b"x\n", "line 1"),
            ("a.hex", b":0200000041427B", "no end record"),
            ("a.hex", b":020000040002F8\n:0200000041427B", "line 2: it goes beyond"),
            ("a.txt", b"0: 1 2\n\n1: 3 # twice", "line 3: .*0x0001 is there twice"),
            ("a.txt", b"0: 10000", "line 1"), ("a.txt", b"# nothing", "no words"),
        ]:
            with self.subTest(contents), self.assertRaisesRegex(wrenlink.ArgumentError, reason):
                (self.folder / name).write_bytes(contents)
                wrenlink.load_image(self.folder / name)

    def test_errors_have_a_class_a_code_and_an_address(self):
        control("set 1 firmware 1.4")
        chip, bare, old = self.chip, self.opened(port=None), self.opened(port=1)
        closed = self.opened()
        closed.close()
        for fault, call, error, code, address in [
            ("", lambda: bare.read(0, 1), wrenlink.NoAdapterError, 514, 0),
            ("", lambda: bare.clock, wrenlink.NoAdapterError, 258, 0),
            ("", bare.xap_stopped, wrenlink.NoAdapterError, 0, 0),
            ("", lambda: bare.mgcmd([1]), wrenlink.NoAdapterError, 0, 0),
            ("", lambda: bare.command("DFU"), wrenlink.NoAdapterError, 0, 0),
            ("", lambda: setattr(bare, "mux", 1), wrenlink.NoAdapterError, 0, 0),
            ("", lambda: closed.clock, wrenlink.ClosedError, 262, 0),
            ("", lambda: chip.read(0x12345, 1), wrenlink.ArgumentError, 265, 0x12345),
            ("", lambda: chip.read(1, 0x10000), wrenlink.ArgumentError, 266, 0),
            ("", lambda: old.mgcmd_init(1, 2), wrenlink.FirmwareError, 520, 0),
            ("fault 0 refuse 5", chip.xap_stopped, wrenlink.ExchangeError, 516, 0),
            ("faulty 0 0x105 0x105", lambda: chip.read(258, 9), wrenlink.AdapterError, 517, 258),
            ("unplug 0", lambda: chip.read(0, 1), wrenlink.OpenError, 515, 0),
            ("", lambda: [self.opened(port=None) for _ in range(33)], wrenlink.StreamError, 261, 0),
        ]:
            with self.subTest(error=error, code=code):
                control(fault)
                with self.assertRaises(error) as raised:
                    call()
                self.assertEqual((raised.exception.code, raised.exception.address), (code, address))

    def test_it_tells_why_there_is_no_adapter(self):
        self.chip.close()
        (self.folder / "empty/adapters").mkdir(parents=True)
        for folder, reason in [("none", r"id \(0\); cannot look into '.*/none/adapters': No such file"),
                               ("empty", "'.*/empty/adapters' offers none")]:
            os.environ["WRENLINK_RUNTIME_DIR"] = str(self.folder / folder)
            self.assertRaisesRegex(wrenlink.NoAdapterError, reason, wrenlink.open)

    def test_variables_and_attributes_are_the_same(self):
        chip = self.chip
        for name, attribute, value, text in [
            ("SPI_DELAY", "delay", 40, "40"), ("SPIMAXCLOCK", "max_clock", 900.5, "900.500000"),
            ("SPICMDREADBITS", "read_bits", 0x40, "0x40"), ("SPIMUL", "mux", 5, "5"),
            ("spicmdwritebits", "write_bits", 1, "0x1"),
        ]:
            with self.subTest(name):
                chip.variables[name] = value
                setattr(chip, attribute, getattr(chip, attribute))
                self.assertEqual((getattr(chip, attribute), chip.variables[name]), (value, text))
        self.assertEqual(chip.variables.keys() - wrenlink.defaults().keys(),
                         {"QUILLVERSION", "MUTEXNAME"})
        self.assertEqual(dict(chip.variables)["SPICMDBITS"], "MISMATCH")
        self.assertEqual((chip.port, chip.device_id), (0, "quill100"))
        for name in ["QUILLMODE", "NONE", 7]:
            self.assertNotIn(name, chip.variables)
        self.assertRaises(AttributeError, setattr, chip, "clok", 1000)

    def test_a_sequence_keeps_its_buffers_and_can_be_submitted_again(self):
        sequence = wrenlink.Sequence()
        written = array("H", [1, 2])
        sequence.write(0x300, written)
        sequence.write(0x302, [3])
        sequence.set("spi" + "clock", str(10 * 100))
        found = sequence.read(0x300, 3)
        gc.collect()
        for value in (1, 9):
            written[0] = value
            self.chip.submit(sequence)
            self.assertEqual(found.tolist(), [value, 2, 3])

    def test_a_call_lets_other_threads_run_and_times_out(self):
        for _ in range(5):  # a busy machine may look too late
            control("log 0 clear")
            control("fault 0 silence")
            with ThreadPoolExecutor() as threads:
                call = threads.submit(self.chip.xap_stopped)
                while "code=0x0400" not in control("log 0"):
                    pass
                seen_during_the_call = not call.done()
            self.assertIsInstance(call.exception(), wrenlink.TimedOutError)
            if seen_during_the_call:
                return
        self.fail("the call holds all threads up")

    def test_chips_that_are_dropped_are_closed_later(self):
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            for _ in range(40):
                wrenlink.open(port=None)
        self.assertEqual({w.category for w in caught}, {ResourceWarning})

    def test_it_installs_into_a_virtual_environment(self):
        source = shutil.copytree(PACKAGE, self.folder / "source")
        environment = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
        tell = ("import wrenlink, importlib.metadata as all; own = all.distribution('wrenlink');"
                "print(wrenlink.__file__, wrenlink.__version__, own.version, *own.files);"
                "print(own.metadata.get_all('Project-URL'))")
        for command in [
            [sys.executable, "-m", "venv", "--without-pip", "--system-site-packages", "env"],
            ["env/bin/python", "-m", "pip", "install", "--no-index", "--no-build-isolation",
             "--no-compile", source],
            ["env/bin/python", "-c", tell],
        ]:
            done = subprocess.run(command, cwd=self.folder, env=environment, capture_output=True,
                                  text=True, check=False)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        for part in [f"{self.folder}/env/", "{0} {0} ".format(os.environ["VERSION"]),
                     "info/LICENSE", "wrenlink/py.typed", "https://"]:
            self.assertIn(part, done.stdout)
        self.assertEqual((PACKAGE / "LICENSE").read_text(),
                         (PACKAGE.parents[1] / "LICENSE").read_text())

    def test_a_library_that_cannot_be_used_is_named(self):
        for name, reason in [("/no/such.so", "WRENLINK_LIBRARY"),
                             ("libc.so.6", "no function spifns")]:
            done = subprocess.run([sys.executable, "-c", "import wrenlink; wrenlink.ports()"],
                                  env={**os.environ, "WRENLINK_LIBRARY": name}, text=True,
                                  check=False, stderr=subprocess.PIPE)
            for part in ("LibraryError", name, reason):
                self.assertIn(part, done.stderr.splitlines()[-1])
