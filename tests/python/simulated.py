"""What the tests share: simulated adapters, in a folder that is gone when the test ends.

The environment variables QUILLSIM and WREN name the simulator and the tool; PYTHONPATH and WRENLINK_LIBRARY lead to the
Python package and to the library.
"""
import os
import pathlib
import subprocess
import tempfile
import unittest


def quillsim(*words):
    return subprocess.run([os.environ["QUILLSIM"], *words], check=False, capture_output=True,
                          text=True)


def control(line):
    """Sends a command to the running simulator and returns its answer."""
    return quillsim("--control", line).stdout


def wren(*words, **options):
    return subprocess.run([os.environ["WREN"], *words], check=False, capture_output=True, text=True,
                          **options)


class Simulated(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        os.environ.update(WRENLINK_RUNTIME_DIR=folder.name, WRENLINK_DOCUMENTS_DIR=folder.name)

    def start(self, *words, adapters=2):
        """Starts adapters 100, 200 and so on, whose chips have zeros at first."""
        simulator = subprocess.Popen([os.environ["QUILLSIM"], "--adapters", str(adapters), *words],
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(self.end, simulator)
        self.assertEqual(simulator.stdout.readline(), b"ready\n")
        return simulator

    def end(self, simulator):
        """Ends one that still runs."""
        if simulator.returncode is None:
            simulator.terminate()
            simulator.communicate()
            self.assertEqual(simulator.returncode, 0)
