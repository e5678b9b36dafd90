"""run_examples.py SOURCES KIT DOCUMENT

Runs the examples of a Markdown document, in their order and in one shell, as a reader who has
wrenlink installed in the folder KIT, from an empty home folder in which the project's examples lie:

    ```sh        commands that have to succeed
    ```console   commands after "$ ", and what they print; "..." stands for anything
    `FILE`: and a block in any language: that file
    ```text      no example
"""
import pathlib
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"(?:^`([\w.-]+)`[^\n]*:\n\n)?^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
COMMAND = re.compile(r"^\$ ((?:.*\\\n)*.*\n)((?:(?!\$ ).*\n)*)", re.MULTILINE)
# A kit is found as if it were installed for the whole system; one in /usr is. What is started in
# the background serves when it says so, and ends with the session.
START = r"""set -e
ln -s "$1/examples" .
unset ${!WRENLINK_@}
export HOME=$PWD LC_ALL=C.UTF-8 CMAKE_GENERATOR=Ninja
if [ "$2" != /usr ]; then
    export PATH=$2/bin:$PATH CMAKE_PREFIX_PATH=$2 PKG_CONFIG_PATH=$2/lib/pkgconfig
    export LD_RUN_PATH=$2/lib WRENLINK_LIBRARY=$2/lib/libwrenlink.so.1
    export PYTHONPATH=$1/bindings/python PYTHONDONTWRITEBYTECODE=1
    mkdir -p .local/lib/wireshark
    ln -s "$2/lib/wireshark/plugins" .local/lib/wireshark
fi
trap 'exec &>/dev/null; kill -KILL $(jobs -p) || :; wait' EXIT
started() {
    servers=$((servers + 1))
    until [ "$(grep -cax ready session)" -ge $servers ]; do sleep 0.01; done
}
"""


def examples_of(document, home):
    """The commands of a document, whose files it writes: the line in which each stands, itself, and
    what it is to print, or None."""
    text = document.read_text()
    if re.search(r"\n\n    ", BLOCK.sub("", text)):
        sys.exit(f"{document.name} has an indented block, which is not run")
    for block in BLOCK.finditer(text):
        name, language, contents = block.groups()
        line = text.count("\n", 0, block.start(3)) + 1
        if language == "sh":
            yield line, contents, None
        elif language == "console":
            for shown in COMMAND.finditer(contents):
                yield line + contents.count("\n", 0, shown.start()), *shown.groups()
        elif name:
            (home / name).write_text(contents)
        elif language != "text":
            sys.exit(f"{document.name}:{line}: neither commands nor a file")


def scripted(command, expected):
    """A command behind a mark; one whose output is expected may fail."""
    command = re.sub(r"^(.* &)$", r"\1\nstarted", command.rstrip("\n"), flags=re.MULTILINE)
    may_fail = "" if expected is None else " || :"
    return f"printf '\\0\\0\\n'\n{{ {command}\n}}{may_fail}\n"


def fits(found, expected):
    pattern = re.escape("..." if expected is None else expected).replace(r"\.\.\.", ".*")
    return re.fullmatch(pattern, found, re.DOTALL)


sources, kit, document = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
with tempfile.TemporaryDirectory(prefix="wrenlink-docs-") as folder:
    home = pathlib.Path(folder)
    examples = list(examples_of(document, home))
    script = START + "".join(scripted(*example[1:]) for example in examples)
    with open(home / "session", "wb") as session:
        status = subprocess.run(["timeout", "50", "bash", "-c", script, "bash", sources, kit],
                                cwd=home, stdin=subprocess.DEVNULL, stdout=session,
                                stderr=subprocess.STDOUT, check=False).returncode
    printed = (home / "session").read_text(errors="replace").split("\0\0\n")[1:]
wrong = 0
for number, ((line, command, expected), found) in enumerate(zip(examples, printed), 1):
    # A command that ended the session is the last one.
    if (status != 0 and number == len(printed)) or not fits(found, expected):
        wrong += 1
        print(f"{document.name}:{line}: {command}printed:\n{found}\nended with {status}")
print(f"{document.name}: {len(printed)} of {len(examples)} commands run, {wrong} wrong")
sys.exit(wrong > 0 or len(printed) != len(examples))
