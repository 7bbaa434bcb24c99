#!/usr/bin/env python3
"""The version in CMake, the newest dated one in the changelog and the newest of AppStream agree."""
import pathlib
import re
import sys

top = pathlib.Path(sys.argv[1])
found = {}
for name, pattern in {
    "CMakeLists.txt": r"project\(Morvane VERSION ([0-9.]+)",
    "CHANGELOG.md": r"^## ([0-9.]+) - \d{4}-\d{2}-\d{2}$",
    "packaging/org.example.morvane.metainfo.xml": r'<release version="([0-9.]+)" date="',
}.items():
    match = re.search(pattern, (top / name).read_text(encoding="utf-8"), re.MULTILINE)
    found[name] = match.group(1) if match else None
for name, version in found.items():
    print(f"{name}: {version}")
sys.exit(0 if None not in found.values() and len(set(found.values())) == 1 else 1)
