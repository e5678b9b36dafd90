"""run_examples.py SOURCES KIT DOCUMENT

Runs the examples of a Markdown document, in their order and in one shell, as a reader who has wrenlink
installed in the folder KIT, from an empty home folder in which the project's examples lie:

    ```sh        commands that have to succeed
    ```console   commands after "$ ", and what they print; "..." stands for anything, a blank
                 for some
    `FILE`: and a block in any language: that file; one in a folder is the project's own
    ```text      no example
"""
import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"(?:^`([\w./-]+)`[^\n]*:\n\n)?^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
# What is started in the background serves when it says so.
START = """set -e
started() {
    servers=$((servers + 1))
    until [ "$(grep -cax ready session)" -ge $servers ]; do sleep 0.01; done
}
"""


class Example:
    """A command, the line of the document in which it stands, and what it is to print, or None."""

    def __init__(self, line, command, expected=None):
        self.line, self.command, self.expected = line, command.rstrip("\n"), expected

    def script(self, mark):
        command = re.sub(r"^(.* &)$", r"\1\nstarted", self.command, flags=re.MULTILINE)
        may_fail = "" if self.expected is None else " || :"
        return f"printf '\\0%s\\0\\n' {mark}\n{{ {command}\n}}{may_fail}\n"

    def fits(self, found):
        pattern = re.escape("..." if self.expected is None else self.expected).replace(r"\.\.\.", ".*")
        return re.fullmatch(re.sub(r"(\\ )+", " +", pattern), found, re.DOTALL)


def read_examples(document, sources, home):
    """Writes the files that a document shows, and returns its commands."""
    text = document.read_text()
    if re.search(r"\n\n    ", BLOCK.sub("", text)):
        sys.exit(f"{document.name} has an indented block, which is not run")
    examples = []
    for block in BLOCK.finditer(text):
        name, language, contents = block.groups()
        line = text.count("\n", 0, block.start(3)) + 1
        if language == "sh":
            examples.append(Example(line, contents))
        elif language == "console":
            for shown in re.finditer(r"^\$ ((?:.*\\\n)*.*\n)((?:(?!\$ ).*\n)*)", contents, re.MULTILINE):
                before = contents.count("\n", 0, shown.start())
                examples.append(Example(line + before, *shown.groups()))
        elif language == "text":
            continue
        elif name and "/" in name:
            if (sources / name).read_text() != contents:
                sys.exit(f"{document.name}:{line}: {name} is another")
        elif name:
            (home / name).write_text(contents)
        else:
            sys.exit(f"{document.name}:{line}: neither commands nor a file")
    return examples


def environment(sources, kit, home):
    """What finds an installed kit as if it were installed for the whole system; one in /usr is."""
    mine = {name: value for name, value in os.environ.items() if not name.startswith("WRENLINK_")}
    mine |= {"HOME": str(home), "LC_ALL": "C.UTF-8", "CMAKE_GENERATOR": "Ninja"}
    if kit == pathlib.Path("/usr"):
        return mine
    return mine | {
        "PATH": f"{kit}/bin:{os.environ['PATH']}", "CMAKE_PREFIX_PATH": str(kit),
        "PKG_CONFIG_PATH": f"{kit}/lib/pkgconfig", "LD_RUN_PATH": f"{kit}/lib",
        "PYTHONPATH": str(sources / "bindings/python"), "PYTHONDONTWRITEBYTECODE": "1",
        "WRENLINK_LIBRARY": f"{kit}/lib/libwrenlink.so.1"}


def run(examples, sources, kit, home):
    """Returns what each command printed; a command that ended the session is the last one."""
    script = START + "".join(example.script(mark) for mark, example in enumerate(examples))
    with open(home / "session", "wb") as output:
        shell = subprocess.Popen(["bash", "-c", script], cwd=home, env=environment(sources, kit, home),
                                 stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                                 start_new_session=True)
        try:
            status = shell.wait(timeout=50)
        except subprocess.TimeoutExpired:
            status = "none, still running"
        finally:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(shell.pid, signal.SIGKILL)
    printed = (home / "session").read_text(errors="replace").split("\0")[2::2]
    return status, [text[1:] for text in printed]


def main():
    sources, kit, document = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    with tempfile.TemporaryDirectory(prefix="wrenlink-docs-") as folder:
        home = pathlib.Path(folder)
        for part in ("examples", "tools"):
            (home / part).symlink_to(sources / part)
        examples = read_examples(document, sources, home)
        status, printed = run(examples, sources, kit, home)
    wrong = 0
    for number, (example, found) in enumerate(zip(examples, printed)):
        stopped = number == len(printed) - 1 and status != 0
        if stopped or not example.fits(found):
            wrong += 1
            print(f"{document.name}:{example.line}: {example.command}\nprinted:\n{found}\n"
                  f"status of the session: {status}")
    print(f"{document.name}: {len(printed)} of {len(examples)} commands run, {wrong} wrong")
    return 1 if wrong or len(printed) != len(examples) or status != 0 else 0


sys.exit(main())
