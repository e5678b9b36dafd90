"""What quillsim captures, as the dissector shows it in tshark.

The environment variables QUILLSIM, WREN and DISSECTOR name the simulator, the tool and the
dissector; PYTHONPATH and WRENLINK_LIBRARY lead to the Python package and to the library.
"""
import os
import pathlib
import resource
import subprocess
import tempfile
import unittest

import wrenlink

QUILLSIM = os.environ["QUILLSIM"]
FIELDS = ["kind", "control_code", "capacity", "request_length", "reply_length", "code", "selector",
          "bits", "address", "length", "word", "delay", "xap", "id", "version", "mode", "device",
          "mgcmd.first", "mgcmd.second", "status", "reply_status"]

# What each packet of adapter 100 shows: the line of the list, and the fields that it has, each with
# all its values.
PACKETS = [
    ("Get adapter id", "kind=1 control_code=0x00220000 capacity=6 request_length=3 reply_length=6 "
     "code=0x0700"),
    ("Get adapter id: 100", "kind=2 id=100 status=0 reply_status=0x0700"),
    ("Get firmware version", "code=0x0800"),
    ("Get firmware version: 1.9", "version=0x0109 status=0"),
    ("Set mode: JTAG", "request_length=5 reply_length=0 code=0x0900 mode=1"),
    ("Set mode: done", "status=0"),
    ("Set delay: 300", "capacity=0 code=0x0300 delay=300"),
    ("Set delay: done", "status=0"),
    ("Write bits 0x0, Write [0100, 5 words] = 0001 0002 0003 0004 ..., Read bits 0x40, "
     "Read [0100, 5 words], ... 5 in all",
     "request_length=49 reply_length=24 code=0x0f00,0x0200,0x0f00,0x0100,0x0100 selector=1,0 "
     "bits=0x0000,0x0040 address=0x0100,0x0100,0xffff length=5,5,1 "
     "word=0x0001,0x0002,0x0003,0x0004,0xbeef"),
    ("Read [0100, 5 words] = 0001 0002 0003 0004 ..., Read [ffff] = 0000",
     "address=0x0100,0xffff length=5,1 word=0x0001,0x0002,0x0003,0x0004,0xbeef,0x0000 status=0 "
     "reply_status=0x0100,0x0100"),
    ("Select device: 3", "code=0x0e00 device=3"),
    ("Select device: done", "status=0"),
    ("MGCMD init: 0x00ff, 0x0001", "code=0x4000 mgcmd.first=0x00ff mgcmd.second=0x0001"),
    ("MGCMD init: done", "status=0"),
    ("MGCMD = 1200 0034", "code=0x4100 length=2 word=0x1200,0x0034"),
    ("MGCMD = 1300 00cc", "word=0x1300,0x00cc status=0"),
    ("XAP state", "code=0x0400"),
    ("XAP state: running", "xap=0x0000 status=0 reply_status=0x0400"),
    ("Read [0200]", "code=0x0100 address=0x0200 length=1"),
    ("Read [0200] failed = 0000", "reply_status=0x0101"),
    ("Enter DFU mode", "code=0x0600"),
    ("Failed with 5", "kind=2 status=5"),
    ("XAP state", "code=0x0400"),
    ("Cut short", "kind=2"),
    ("Get delay", "code=0x0500"),
    ("Closed without an answer", "kind=3"),
]


class Capture(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.file = str(self.folder / "capture.pcapng")
        os.environ.update(WRENLINK_RUNTIME_DIR=folder.name, WRENLINK_DOCUMENTS_DIR=folder.name,
                          WIRESHARK_CONFIG_DIR=folder.name)

    def start(self, **options):
        simulator = subprocess.Popen([QUILLSIM, "--adapters", "2", "--capture", self.file],
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
        self.addCleanup(simulator.communicate)
        self.addCleanup(simulator.terminate)
        self.assertEqual(simulator.stdout.readline(), b"ready\n")
        return simulator

    def quillsim(self, *words):
        return subprocess.run([QUILLSIM, *words], check=False, capture_output=True, text=True)

    def packets(self, *fields):
        """The values of some fields of adapter 100's packets, a list for each packet."""
        wanted = [word for field in fields for word in ("-e", field)]
        shown = subprocess.run(["tshark", "-2", "-X", "lua_script:" + os.environ["DISSECTOR"], "-r",
                                self.file, "-Y", 'frame.interface_name == "quill0"', "-T", "fields",
                                *wanted], check=True, capture_output=True, text=True).stdout
        return [line.split("\t") for line in shown.splitlines()]

    def failing(self, fault, call):
        self.quillsim("--control", fault)
        self.assertRaises(wrenlink.Error, call)

    def test_every_request_and_reply_is_shown_by_field(self):
        self.start()
        with wrenlink.open(port=100, mode="JTAG") as chip:
            chip.delay = 300
            chip.read_bits = 0x40
            sequence = wrenlink.Sequence()
            sequence.write(0x100, [1, 2, 3, 4, 0xBEEF])
            sequence.read(0x100, 5)
            sequence.read(0xFFFF, 1)
            chip.submit(sequence)
            chip.mux = 3
            chip.mgcmd_init(0xFF, 1)
            chip.mgcmd([0x1200, 0x34])
            chip.xap_stopped()
            self.failing("faulty 0 0x200 0x200", lambda: chip.read(0x200, 1))
            self.failing("fault 0 refuse 5", lambda: chip.command("DFU"))
            self.failing("fault 0 runt 2", chip.xap_stopped)
            self.failing("fault 0 close", lambda: chip.delay)

        links = ["wrenlink.answered_in", "wrenlink.answers", "frame.number", "wrenlink.time"]
        found = self.packets("_ws.col.Info", *links, *("wrenlink." + name for name in FIELDS))
        for (info, fields), (shown, _, _, _, _, *values) in zip(PACKETS, found):
            with self.subTest(info):
                self.assertEqual(shown, info)
                had = dict(zip(FIELDS, values))
                wanted = dict(field.split("=") for field in fields.split())
                self.assertEqual({name: had[name] for name in wanted}, wanted)
        self.assertEqual(len(found), len(PACKETS))
        for request, end in zip(found[::2], found[1::2]):
            self.assertEqual((request[1], request[3]), (end[3], end[2]))
            self.assertGreater(float(end[4]), 0)

    def test_a_capture_that_cannot_be_written_stops_the_start(self):
        self.start()
        for file, words, reason in [
            ("/dev/full", ["--runtime-dir", str(self.folder / "other")], "No space left"),
            (str(self.folder), ["--runtime-dir", str(self.folder / "other")], "Is a directory"),
            (self.file, [], "in use"),
        ]:
            with self.subTest(file):
                done = self.quillsim("--capture", file, *words)
                self.assertEqual(done.returncode, 1)
                self.assertRegex(done.stderr, "^quillsim: .*" + reason)
        self.assertEqual(wrenlink.ports()[0].name, "USB SPI (100)")
        self.assertEqual(len(self.packets("frame.number")), 2, "another's start emptied the file")

    def test_a_capture_that_cannot_grow_ends_whole(self):
        limit = 4000
        simulator = self.start(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE,
                                                                     (limit, limit)))
        with wrenlink.open() as chip:
            for _ in range(9):
                chip.write(0, range(500))
        simulator.terminate()
        self.assertRegex(simulator.stderr.read().decode(), "no more is captured: File too large\n$")
        self.assertLess(pathlib.Path(self.file).stat().st_size, limit)
        self.assertGreater(len(self.packets("frame.number")), 6)

    def test_wren_captures_what_goes_to_its_own_adapters(self):
        limit = (4000, 4000)
        for words, file, settings, said in [
            (["xap"], self.file, {}, ""),
            (["xap"], "/dev/full", {}, "No space left on device"),
            (["fill", "--region", "0:4000", "7"], str(self.folder / "short"), {"preexec_fn": lambda:
             resource.setrlimit(resource.RLIMIT_FSIZE, limit)}, "no more is captured"),
        ]:
            with self.subTest(file):
                done = subprocess.run([os.environ["WREN"], "--simulate", "--capture", file, *words],
                                      check=False, capture_output=True, text=True, **settings)
                self.assertEqual(done.returncode, 1 if said else 0)
                self.assertRegex(done.stderr, f"^wren: error: .*{said}.*\n$" if said else "^$")
        self.assertIn(["XAP state: running"], self.packets("_ws.col.Info"))


if __name__ == "__main__":
    unittest.main()
