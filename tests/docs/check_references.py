"""check_references.py SOURCES KIT: the documents tell of every error and every option that there is."""
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

for manual in (kit / "share/man/man1").glob("*.1"):
    shown = subprocess.run([kit / "bin" / manual.stem, "--help"], check=True, capture_output=True, text=True)
    told = manual.read_text().replace("Fl Fl ", "--").replace("\\-", "-")
    options = set(re.findall(r"--[a-z-]+", shown.stdout))
    missing += sorted(f"{manual.name}: {option}" for option in options if not re.search(rf"{option}\b", told))

print(*missing, sep="\n")
print(f"{len(stored)} errors, {len(missing)} missing")
sys.exit(1 if missing or len(stored) < 30 else 0)
