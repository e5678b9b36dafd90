"""check_references.py SOURCES KIT: the documents tell of every error, option, function and member of a result, and
name no test that there is not; what one list says and others repeat, they repeat whole."""
import json
import pathlib
import re
import subprocess
import sys

sources, kit = map(pathlib.Path, sys.argv[1:])
missing = []

errors = (sources / "docs/errors.md").read_text()
stored = re.findall(r"SPIFNS_ERROR_\w+ = (\d+)()", (sources / "include/wrenlink/spifns.h").read_text())
for file in (sources / "spi").rglob("*.cpp"):
    stored += re.findall(r'[({](1|2[56]\d|51\d|520),[^";{]*"([^"]+)"', file.read_text())
for code, text in stored:
    constant = [part.strip() for part in re.split(r"%\w|\\n", text)]
    if code != "0" and not re.search(rf"^\| {code} \|.*" + ".*".join(map(re.escape, constant)), errors, re.M):
        missing.append(f"errors.md: {code} {text}")

# The variables, the adapter's commands, and what the library wants of a system.
for home, names, copies in (
    ("spi/wrenlink/quill/stream_variables.cpp", r'^    {"([A-Z_]+)",',
     ("include/wrenlink/spifns.h", "tools/wren/settings.cpp", "bindings/python/wrenlink/_variables.py",
      "docs/hosts.md")),
    ("spi/wrenlink/quill/stream_variables.cpp", r'^    {"([A-Z_]+)", "', ("tools/wren/wren.bash",)),
    ("spi/wrenlink/quill/frame.h", r"k\w+ = {?(0x[0-9A-F]{4})[,}]",
     ("sim/model/wire.h", "tools/wireshark/wrenlink.lua", "docs/wire-format.md")),
    ("platform/os.h", r"^(?:class |[\w:<>]+[ *&]+(?=\w+\())(\w+)", ("docs/porting.md",)),
):
    names = re.findall(names, (sources / home).read_text(), re.M)
    for copy in copies:
        told = (sources / copy).read_text()
        missing += [f"{copy}: {name}" for name in names or [home] if not re.search(rf"\b{name}\b", told)]

told = (sources / "docs/environment.md").read_text()
for folder in ("bindings", "diag", "platform", "sim", "spi", "tools"):
    for file in (sources / folder).rglob("*.[cp][py]*"):
        names = re.findall(r'(?:getenv|environ|environ\.get|nvironment\w*|envname)[([]L?"(\w+)"', file.read_text())
        missing += [f"environment.md: {name}" for name in names if f"`{name}`" not in told]

for tool in ("wren", "quillsim"):
    manual = (kit / f"share/man/man1/{tool}.1").read_text()
    missing += [f"{tool}.1: {part}" for part in ("OPTIONS", "FILES", "EXAMPLES") if f".SH {part}\n" not in manual]

for name in re.findall(r"^SPIFNS_API .*?(\w+)\(", (sources / "include/wrenlink/spifns.h").read_text(), re.M):
    manual = kit / "share/man" / (kit / f"share/man/man3/{name}.3").read_text().removeprefix(".so ").strip()
    if f"{name} " not in manual.read_text():
        missing.append(f"{manual.name}: {name}")

rows = re.findall(r"^\| (`[a-z`, ]+`) \| (.*) \|$", (sources / "docs/wren-json.md").read_text(), re.M)
lines = ["ports", "info", "xap", "speed --seconds 0.02", "read 0 1", "read 0 1 -o /dev/null", "dump 0 1",
         "write 0 1", "fill 0 1 1", "verify 0 1", "get SPIMUL", "set SPIMUL=1",
         "command DFU", "mgcmd --init 1 2 3", "run -"]
shown = subprocess.run([kit / "bin/wren", "--help"], check=True, capture_output=True, text=True).stdout
commands = re.findall(r"^  ([a-z]+) ", shown.partition("Subcommands:")[2].partition("\n\n")[0], re.M)
missing += [f"a line for {name} here" for name in commands or ["commands"] if name not in " ".join(lines).split()]
for line in lines:
    words = line.split()
    shown = subprocess.run([kit / "bin/wren", "--simulate", "--json", *words], check=False, capture_output=True,
                           input="read 0 1", text=True)
    told = " ".join(members for commands, members in rows if f"`{words[0]}`" in commands)
    if "those of `verify`" in told:
        told += " ".join(members for commands, members in rows if "`verify`" in commands)
    result = json.loads(shown.stdout)["result"]
    missing += [f"wren-json.md: {line}: {member}" for member in result or ["nothing"] if f"`{member}`" not in told]

tests = set()
for file in (sources / "tests").rglob("*.cpp"):
    for suite, case in re.findall(r"^TEST(?:_\w)?\((\w+), (\w+)\)", file.read_text(), re.M):
        tests |= {suite, f"{suite}.{case}"}
told = re.findall(r"`([A-Z][A-Za-z]+(?:\.[A-Za-z]+)?)`", (sources / "docs/reliability.md").read_text())
missing += sorted(f"reliability.md: {name}" for name in set(told) - tests)

print(*missing, sep="\n")
print(f"{len(stored)} errors, {len(missing)} missing")
sys.exit(1 if missing or len(stored) < 30 else 0)
