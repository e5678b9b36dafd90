"""The log that TIDEWATER_LOG asks for, as hosts' processes write it."""
import datetime
import os
import re
import subprocess
import sys

from simulated import Simulated

LINE = re.compile(r"(\S+Z) (\d+) (\d+) ([\w:~]+) \S*spi/wrenlink/\w+/\w+\.(?:cpp|h):[1-9]\d* ([ -~]*)")


class Trace(Simulated):
    def setUp(self):
        super().setUp()
        self.start()
        self.log = self.folder / "trace"

    def host(self, program, target):
        """A process that has the library loaded and works; it ends well."""
        host = subprocess.Popen([sys.executable, "-c", "import wrenlink\n" + program], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, env=os.environ | {"TIDEWATER_LOG": target})
        self.addCleanup(host.stdout.close)
        return host

    def said(self, host):
        said = host.stdout.read()
        self.assertEqual(host.wait(20), 0, said)
        return said

    def lines(self, text):
        """The fields of all lines: time, process, thread, function and text."""
        for line in text.splitlines():
            self.assertRegex(line, f"^{LINE.pattern}$")
        return LINE.findall(text)

    def test_every_kind_of_line_is_appended_with_all_its_fields(self):
        program = ("try: wrenlink.open(port=None).xap_stopped()\n"
                   "except wrenlink.Error: wrenlink.open(100).close()")
        for target in (str(self.log), str(self.log), "stderr"):
            first = datetime.datetime.now(datetime.UTC)
            host = self.host(program, target)
            said = self.said(host)
        self.assertEqual(len(self.lines(said)), len(self.lines(self.log.read_text())) / 2)
        texts = []
        for time, process, thread, function, text in self.lines(said):
            told = datetime.datetime.strptime(time, "%Y-%m-%dT%H:%M:%S.%f%z")
            self.assertTrue(first <= told <= datetime.datetime.now(datetime.UTC), time)
            self.assertEqual((process, thread), (str(host.pid), str(host.pid)))
            texts.append(f"{function}: {text}")
        for text in ("spifns_stream_init: -> spifns_stream_init", "spifns_stream_close: <- spifns_stream_close",
                     "spifns_stream_init: <- spifns_stream_init [returning 0]", "Quill_Command: profile mark 5",
                     "Quill_Command: profile mark 0", "Quill_Stream_GetVersion: Quill fw version: 265 (0x109) ",
                     "Quill_Stream_Command: error 0: No USB-SPI device found"):
            self.assertIn(text, texts)

    def test_without_a_file_to_write_it_is_silent_and_native_errors_stay(self):
        program = ("import ctypes, os; library = ctypes.CDLL(os.environ['WRENLINK_LIBRARY'], use_errno=True)\n"
                   "ctypes.set_errno(18); assert library.spifns_count_streams() == 0 and ctypes.get_errno() == 18")
        for target in ("", str(self.folder), str(self.folder / "missing/trace"), "/dev/full", str(self.log)):
            with self.subTest(target):
                self.assertEqual(self.said(self.host(program, target)), "")
        self.assertTrue(self.log.exists())
        self.assertFalse((self.folder / "missing").exists())

    def test_lines_of_threads_and_processes_do_not_mix(self):
        program = ("from concurrent.futures import ThreadPoolExecutor as Threads\n"
                   "with wrenlink.open(port=None) as chip, Threads(4) as threads:\n"
                   " list(threads.map(lambda i: chip.variables['SPIMUL'], range(500)))")
        for host in [self.host(program, str(self.log)) for _ in range(3)]:
            self.said(host)
        opened = [text for *_, text in self.lines(self.log.read_text())].count("-> Quill_Stream_GetVar")
        self.assertEqual(opened, 3 * 500)
