"""The simulator as operators meet it: sockets that come and go, its control socket, and its options."""
import os
import pathlib

from simulated import Simulated, control, quillsim


class Quillsim(Simulated):
    def adapters(self):
        return sorted(os.listdir(self.folder / "adapters"))

    def test_it_offers_adapters_and_cleans_up(self):
        self.folder /= "x" * 120  # too long for a socket's address
        os.environ["WRENLINK_RUNTIME_DIR"] = str(self.folder)
        simulator = self.start("--mode", "0750", adapters=11)
        self.assertEqual(self.adapters(), [f"quill{number:02}" for number in range(11)])
        self.assertIn("requests=0 ", control("count 10"))
        self.assertEqual((self.folder / "objects").stat().st_mode & 0o7777, 0o2750)
        self.end(simulator)
        self.assertEqual(self.adapters(), [])
        self.assertFalse((self.folder / "quillsim.control").exists())

    def test_it_takes_over_from_a_dead_one_but_not_from_a_live_one(self):
        killed = self.start(adapters=3)
        killed.kill()
        killed.communicate()
        self.assertEqual(len(self.adapters()), 3)
        self.start()
        second = quillsim("--adapters", "4")
        self.assertEqual((second.returncode, second.stderr),
                         (1, f"quillsim: {self.folder} is already served by another simulator\n"))
        self.assertEqual(self.adapters(), ["quill0", "quill1"])

    def test_unplugged_adapters_are_not_there(self):
        self.start()
        for line, left in [("unplug 0", ["quill1"]), ("plug 0", ["quill0", "quill1"])]:
            self.assertEqual((control(line), self.adapters()), ("", left))

    def test_what_makes_no_sense_is_refused(self):
        for words, code, said in [
            (["--frob"], 2, "The following argument was not expected: --frob; --help tells what there is"),
            (["--runtime-dir", "lab"], 2, "--runtime-dir: 'lab' is not an absolute path; --help tells what there is"),
            (["--firmware", "1"], 2, "--firmware: '1' is not MAJOR.MINOR; --help tells what there is"),
            (["--control", "list"], 1, f"no simulator serves {self.folder}"),
        ]:
            refused = quillsim(*words)
            self.assertEqual((refused.returncode, refused.stderr), (code, f"quillsim: {said}\n"))
        self.assertEqual(quillsim("--version").returncode, 0)

    def test_it_starts_with_its_options(self):
        pathlib.Path(self.folder, "image").write_bytes(b"\x34\x12")
        self.start("--id", "7", "--firmware", "1.4", "--memory", self.folder / "image", "--xap", "stopped")
        self.assertIn(" id=7 firmware=1.4 ", control("state 0"))
        self.assertRegex(control("state 1"), " id=200 firmware=1.4 .* xap=0x0001 ")
        self.assertEqual(control("peek 0 0 2"), "0x1234 0x0000\n")
        self.assertEqual(quillsim("--control", "peek 2 0 1").returncode, 1)
