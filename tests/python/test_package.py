"""The Python package, as its users call it, against the simulator.

The environment variable QUILLSIM names the simulator; PYTHONPATH and WRENLINK_LIBRARY lead to the
package and to the library.
"""
import ctypes
import doctest
import gc
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import unittest
import warnings
from array import array

import numpy
import wrenlink

README = pathlib.Path(wrenlink.__file__).parents[1] / "README.md"
QUILLSIM = os.environ["QUILLSIM"]


def control(line):
    """Sends a command to the simulator and returns its answer."""
    return subprocess.run([QUILLSIM, "--control", line], check=True, capture_output=True,
                          text=True).stdout


class Simulated(unittest.TestCase):
    """Tests with two adapters, 100 and 200, whose chips have zeros at first."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        os.environ.update(WRENLINK_RUNTIME_DIR=folder.name, WRENLINK_DOCUMENTS_DIR=folder.name)
        simulator = subprocess.Popen([QUILLSIM, "--adapters", "2"], stdout=subprocess.PIPE)
        cls.addClassCleanup(simulator.communicate)
        cls.addClassCleanup(simulator.terminate)
        assert simulator.stdout.readline() == b"ready\n"


class Documentation(Simulated):
    def test_its_examples_run(self):
        outcome = doctest.testfile(str(README), module_relative=False)
        self.assertTrue(outcome.failed == 0 and outcome.attempted > 20)


class Chips(Simulated):
    def setUp(self):
        self.chip = wrenlink.open()
        self.addCleanup(self.chip.close)

    def test_words_of_every_kind_arrive(self):
        grid = numpy.arange(12, dtype=numpy.uint16).reshape(3, 4)
        for words, arrived in [
            ([1, 0xFFFF], [1, 0xFFFF]),
            ((n for n in (3, 4)), [3, 4]),
            (array("H", [5, 6]), [5, 6]),
            (memoryview(b"\1\0\2\0").cast("H"), [1, 2]),
            ((ctypes.c_uint16 * 2)(7, 8), [7, 8]),
            (grid, list(range(12))),
            (grid[1:, 1], [5, 9]),
            (grid[::2, ::2], [0, 2, 8, 10]),
            (numpy.array([9, 10]), [9, 10]),
            (numpy.array([11, 12], ">u2"), [11, 12]),
            (numpy.array([13], numpy.int16), [13]),
            (range(0xFFFF), list(range(0xFFFF))),
            ([], []),
        ]:
            with self.subTest(arrived[:4]):
                self.chip.write(0x200, words)
                self.assertEqual(self.chip.read(0x200, len(arrived)).tolist(), arrived)
        buffer = numpy.zeros((2, 2), numpy.uint16)
        self.chip.read_into(0x201, buffer)
        self.assertEqual(buffer.tolist(), [[1, 2], [3, 4]])

    def test_other_values_are_refused_and_nothing_is_written(self):
        self.chip.write(0x100, [42])
        for words, error in [
            (b"\1\0", TypeError), ("a", TypeError), ([1.5], TypeError), ([0x10000], OverflowError),
            ([-1], OverflowError), (numpy.array([-1], numpy.int16), OverflowError),
            (numpy.array([0.5]), TypeError), (numpy.zeros((2, 2), int), TypeError),
        ]:
            with self.subTest(words), self.assertRaises(error):
                self.chip.write(0x100, words)
        for buffer in [bytearray(4), bytes(4), numpy.zeros(4, numpy.int16), [0],
                       numpy.zeros(4, numpy.uint16)[::2], memoryview(b"\1\0").cast("H")]:
            with self.subTest(buffer), self.assertRaises(TypeError):
                self.chip.read_into(0x100, buffer)
        for call in [lambda: self.chip.read(-1, 1), lambda: self.chip.read(1 << 32, 1),
                     lambda: self.chip.read(0, -1), lambda: self.chip.mgcmd_init(0x10000, 0)]:
            with self.assertRaises(ValueError):
                call()
        self.assertEqual(self.chip.read(0x100, 1)[0], 42)

    def test_errors_have_a_class_a_code_and_an_address(self):
        def opened(**settings):
            chip = wrenlink.open(**settings)
            self.addCleanup(chip.close)
            return chip

        control("set 1 firmware 1.4")
        chip, bare, old = self.chip, opened(port=None), opened(port=1)
        closed = opened()
        closed.close()
        for prepare, call, error, code, address in [
            ("help", lambda: opened(port=-1), wrenlink.NoAdapterError, 514, 0),
            ("help", lambda: bare.read(0, 1), wrenlink.NoAdapterError, 514, 0),
            ("help", lambda: bare.clock, wrenlink.NoAdapterError, 258, 0),
            ("help", bare.xap_stopped, wrenlink.NoAdapterError, 0, 0),
            ("help", lambda: bare.mgcmd([1]), wrenlink.NoAdapterError, 0, 0),
            ("help", lambda: bare.command("DFU"), wrenlink.NoAdapterError, 0, 0),
            ("help", lambda: setattr(bare, "mux", 1), wrenlink.NoAdapterError, 0, 0),
            ("help", lambda: closed.clock, wrenlink.ClosedError, 262, 0),
            ("help", lambda: chip.read(0x12345, 1), wrenlink.ArgumentError, 265, 0x12345),
            ("help", lambda: chip.read(0, 0x10000), wrenlink.ArgumentError, 266, 0),
            ("help", lambda: chip.mgcmd(range(509)), wrenlink.ArgumentError, 1, 0),
            ("help", lambda: chip.mgcmd([0] * 0x10001), wrenlink.ArgumentError, 1, 0),
            ("help", lambda: setattr(chip, "mux", 17), wrenlink.ArgumentError, 1, 0),
            ("help", lambda: old.mgcmd_init(1, 2), wrenlink.FirmwareError, 520, 0),
            ("fault 0 refuse 5", chip.xap_stopped, wrenlink.ExchangeError, 516, 0),
            ("faulty 0 0x105 0x105", lambda: chip.read(258, 9), wrenlink.AdapterError, 517, 258),
            ("unplug 0", lambda: chip.read(0, 1), wrenlink.OpenError, 515, 0),
        ]:
            with self.subTest(error=error, code=code):
                control(prepare)
                with self.assertRaises(error) as raised:
                    call()
                self.assertEqual((raised.exception.code, raised.exception.address), (code, address))
        control("plug 0")
        control("faulty 0 none")
        with self.assertRaises(wrenlink.StreamError):
            for _ in range(33):
                opened(port=None)

    def test_variables_and_attributes_are_the_same(self):
        chip = self.chip
        for name, attribute, value, text in [
            ("SPI_DELAY", "delay", 40, "40"), ("SPICLOCK", "clock", 1066.098081, None),
            ("SPIMAXCLOCK", "max_clock", 900.5, "900.500000"), ("SPIMUL", "mux", 5, "5"),
            ("SPICMDREADBITS", "read_bits", 0x40, "0x40"),
            ("spicmdwritebits", "write_bits", 1, "0x1"),
        ]:
            with self.subTest(name):
                chip.variables[name] = value
                found = getattr(chip, attribute)
                setattr(chip, attribute, found)
                self.assertAlmostEqual(found, value, delta=value / 100)
                self.assertEqual(chip.variables[name], text or chip.variables[name])
        self.assertEqual(chip.variables.keys() - wrenlink.defaults().keys(),
                         {"QUILLVERSION", "MUTEXNAME"})
        self.assertEqual(dict(chip.variables)["SPICMDBITS"], "MISMATCH")
        self.assertEqual((chip.port, chip.device_id), (0, "quill100"))
        for name in ["QUILLMODE", "NONE"]:
            self.assertRaises(KeyError, chip.variables.__getitem__, name)
        self.assertRaises(KeyError, chip.variables.__setitem__, "MUTEXNAME", "1")

    def test_a_sequence_keeps_its_buffers_and_can_be_submitted_again(self):
        sequence = wrenlink.Sequence()
        written = array("H", [1, 2])
        sequence.write(0x300, written)
        sequence.write(0x302, [3])
        sequence.set("spi" + "clock", 10 * 100)
        found = sequence.read(0x300, 3)
        gc.collect()
        for value in (1, 9):
            written[0] = value
            self.chip.submit(sequence)
            self.assertEqual(found.tolist(), [value, 2, 3])

    def test_a_call_lets_other_threads_run_and_times_out(self):
        def ask():
            with self.assertRaises(wrenlink.TimedOutError):
                self.chip.xap_stopped()
            outcome.append("timed out")

        for _ in range(5):  # a busy machine may look too late
            outcome = []
            control("log 0 clear")
            control("fault 0 silence")
            thread = threading.Thread(target=ask)
            thread.start()
            while "code=0x0400" not in control("log 0"):
                pass
            seen_during_the_call = not outcome
            thread.join()
            self.assertEqual(outcome, ["timed out"])
            if seen_during_the_call:
                break
        self.assertTrue(seen_during_the_call, "the call holds all threads up")

    def test_debug_text_is_logged(self):
        with self.assertLogs("wrenlink", "DEBUG") as logged:
            self.chip.delay = 77
        self.assertIn("DEBUG:wrenlink:Quill Set Delays 77", logged.output)

    def test_chips_that_are_dropped_are_closed_later(self):
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            for _ in range(40):
                wrenlink.open(port=None)
        self.assertEqual({w.category for w in caught}, {ResourceWarning})


class Library(unittest.TestCase):
    def test_a_library_that_cannot_be_used_is_named(self):
        for name, reason in [("/no/such.so", "WRENLINK_LIBRARY"),
                             ("libc.so.6", "no function spifns")]:
            done = subprocess.run([sys.executable, "-c", "import wrenlink; wrenlink.ports()"],
                                  env={**os.environ, "WRENLINK_LIBRARY": name}, text=True,
                                  check=False, stderr=subprocess.PIPE)
            message = done.stderr.splitlines()[-1]
            self.assertTrue("LibraryError" in message and name in message and reason in message)


if __name__ == "__main__":
    unittest.main()
