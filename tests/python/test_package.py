"""The Python package, as its users call it, against the simulator."""
import ctypes
import doctest
import gc
import os
import pathlib
import subprocess
import sys
import unittest
import warnings
from array import array
from concurrent.futures import ThreadPoolExecutor

import numpy
import wrenlink
from simulated import Simulated, control


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
        readme = pathlib.Path(wrenlink.__file__).parents[1] / "README.md"
        outcome = doctest.testfile(str(readme), module_relative=False)
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
                self.chip.write(0x200, words)
                self.assertEqual(self.chip.read(0x200, len(arrived)).tolist(), arrived)

    def test_other_values_are_refused_and_nothing_is_written(self):
        chip = self.chip
        chip.write(0x100, [42])
        for error, call, values in [
            (TypeError, chip.write, [b"\1\0", "a", [1.5], numpy.array([0.5]),
                                     numpy.zeros((2, 2), int)]),
            (OverflowError, chip.write, [[0x10000], [-1], numpy.array([-1], numpy.int16)]),
            (TypeError, chip.read_into, [bytearray(4), bytes(4), numpy.zeros(4, numpy.int16), [0],
                                         numpy.zeros(4, numpy.uint16)[::2],
                                         memoryview(b"\1\0").cast("H")]),
            (ValueError, chip.read, [-1]),
            (ValueError, lambda count, address: chip.read(address, count), [-1, 1 << 32]),
            (ValueError, chip.mgcmd_init, [-1, 0x10000]),
        ]:
            for value in values:
                with self.subTest(value=value), self.assertRaises(error):
                    call(0x100, value)
        self.assertEqual(chip.read(0x100, 1)[0], 42)

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
            ("", lambda: chip.read(0, 0x10000), wrenlink.ArgumentError, 266, 0),
            ("", lambda: chip.mgcmd([0] * 0x10001), wrenlink.ArgumentError, 1, 0),
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

    def test_a_library_that_cannot_be_used_is_named(self):
        for name, reason in [("/no/such.so", "WRENLINK_LIBRARY"),
                             ("libc.so.6", "no function spifns")]:
            done = subprocess.run([sys.executable, "-c", "import wrenlink; wrenlink.ports()"],
                                  env={**os.environ, "WRENLINK_LIBRARY": name}, text=True,
                                  check=False, stderr=subprocess.PIPE)
            for part in ("LibraryError", name, reason):
                self.assertIn(part, done.stderr.splitlines()[-1])


if __name__ == "__main__":
    unittest.main()
