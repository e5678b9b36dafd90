"""What quillsim captures, as the dissector shows it in tshark.

The environment variable DISSECTOR names the dissector.
"""
import os
import resource
import subprocess

import wrenlink
from simulated import Simulated, control, quillsim, wren

# The requests to adapter 100 and what ended them: as the list of packets shows both, and the fields
# that they have, each with all its values.
EXCHANGES = [
    ("Get adapter id", "Get adapter id: 100",
     "kind=1,2 control_code=0x00220000 capacity=6 request_length=3 reply_length=6 code=0x0700 "
     "id=100 status=0 reply_status=0x0700"),
    ("Get firmware version", "Get firmware version: 1.9", "code=0x0800 version=0x0109"),
    ("Set mode: JTAG", "Set mode: done",
     "request_length=5 reply_length=0 code=0x0900 mode=1 status=0"),
    ("Set delay: 300", "Set delay: done", "capacity=0 code=0x0300 delay=300"),
    ("Write bits 0x0, Write [0100, 5 words] = 0001 0002 0003 0004 ..., Read bits 0x40, "
     "Read [0100, 5 words], ... 5 in all",
     "Read [0100, 5 words] = 0001 0002 0003 0004 ..., Read [ffff] = 0000",
     "request_length=49 reply_length=24 code=0x0f00,0x0200,0x0f00,0x0100,0x0100 selector=1,0 "
     "bits=0x0000,0x0040 address=0x0100,0x0100,0xffff,0x0100,0xffff length=5,5,1,5,1 "
     "word=0x0001,0x0002,0x0003,0x0004,0xbeef,0x0001,0x0002,0x0003,0x0004,0xbeef,0x0000 status=0 "
     "reply_status=0x0100,0x0100"),
    ("Select device: 3", "Select device: done", "code=0x0e00 device=3"),
    ("MGCMD init: 0x00ff, 0x0001", "MGCMD init: done",
     "code=0x4000 mgcmd.first=0x00ff mgcmd.second=0x0001"),
    ("MGCMD = 1200 0034", "MGCMD = 1300 00cc",
     "code=0x4100 length=2 word=0x1200,0x0034,0x1300,0x00cc"),
    ("XAP state", "XAP state: running", "code=0x0400 xap=0x0000 reply_status=0x0400"),
    ("Read [0200]", "Read [0200] failed = 0000",
     "code=0x0100 address=0x0200,0x0200 length=1,1 reply_status=0x0101"),
    ("Enter DFU mode", "Failed with 5", "code=0x0600 kind=1,2 status=5"),
    ("XAP state", "Cut short", "kind=1,2"),
    ("Get delay", "Closed without an answer", "code=0x0500 kind=1,3"),
]
FIELDS = {field.split("=")[0] for _, _, fields in EXCHANGES for field in fields.split()}


class Capture(Simulated):
    def setUp(self):
        super().setUp()
        self.file = str(self.folder / "capture.pcapng")
        os.environ["WIRESHARK_CONFIG_DIR"] = str(self.folder)

    def packets(self, *fields):
        """The values of some fields of adapter 100's packets, a list for each packet."""
        wanted = [word for field in fields for word in ("-e", field)]
        shown = subprocess.run(["tshark", "-2", "-X", "lua_script:" + os.environ["DISSECTOR"], "-r",
                                self.file, "-Y", 'frame.interface_name == "quill0"', "-T", "fields",
                                *wanted], check=True, capture_output=True, text=True).stdout
        return [line.split("\t") for line in shown.splitlines()]

    def test_every_request_and_reply_is_shown_by_field(self):
        self.start("--capture", self.file)
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
            for fault, call in [("faulty 0 0x200 0x200", lambda: chip.read(0x200, 1)),
                                ("fault 0 refuse 5", lambda: chip.command("DFU")),
                                ("fault 0 runt 2", chip.xap_stopped),
                                ("fault 0 close", lambda: chip.delay)]:
                control(fault)
                self.assertRaises(wrenlink.Error, call)

        found = self.packets("_ws.col.Info", "frame.number", "wrenlink.answered_in",
                             "wrenlink.answers", "wrenlink.time",
                             *("wrenlink." + name for name in FIELDS))
        self.assertEqual(len(found), 2 * len(EXCHANGES))
        for request, end, (asked, ended, fields) in zip(found[::2], found[1::2], EXCHANGES):
            with self.subTest(asked):
                self.assertEqual((request[0], end[0]), (asked, ended))
                self.assertEqual((request[2], request[1]), (end[1], end[3]))
                self.assertGreater(float(end[4]), 0)
                had = {name: ",".join(filter(None, values))
                       for name, *values in zip(FIELDS, request[5:], end[5:])}
                wanted = dict(field.split("=") for field in fields.split())
                self.assertEqual(had | wanted, had)

    def test_a_capture_that_cannot_be_written_stops_the_start(self):
        self.start("--capture", self.file)
        elsewhere = ["--runtime-dir", str(self.folder / "other")]
        for done, reason in [
            (quillsim("--capture", "/dev/full", *elsewhere), "No space left"),
            (quillsim("--capture", str(self.folder), *elsewhere), "Is a directory"),
            (quillsim("--capture", self.file), "already served"),
            (wren("--simulate", "--capture", "/dev/full", "xap"), "No space left"),
        ]:
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stderr, f"^quillsim: .*{reason}.*\n$")
        self.assertEqual(wrenlink.ports()[0].name, "USB SPI (100)")
        self.assertEqual(len(self.packets("frame.number")), 4, "another's start emptied the file")

    def test_a_capture_of_wren_that_cannot_grow_ends_whole(self):
        limit = 4000
        done = wren("--simulate", "--capture", self.file, "fill", "0", "4000", "7",
                    preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
        self.assertEqual(done.returncode, 1)
        self.assertIn("4000 words", done.stdout)
        self.assertRegex(done.stderr, "^quillsim: .*no more is captured: File too large\n$")
        self.assertLess((self.folder / "capture.pcapng").stat().st_size, limit)
        self.assertGreater(len(self.packets("frame.number")), 6)
