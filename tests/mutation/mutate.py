#!/usr/bin/env python3
"""Tells how many small faults the tests find.

    mutate.py run [--only TEXT] [--jobs N] [--report FILE]
                         applies each mutation of mutations.txt to a copy of the tree, one at a time,
                         and runs the tests that should notice it
    mutate.py draw N SEED [FOLDER...]
                         appends N mutations to mutations.txt, drawn at random
    mutate.py check      tells which mutations no longer fit the sources; seconds

A mutation is a line of a source file and what takes its place. In mutations.txt:

    src/share/sharegate.cpp:2
    -    if (attempts > limit)
    +    if (attempts >= limit)

":2" is the occurrence of the line in the file. Which tests are run follows from their includes: first
those that include the header beside the source, then those that include the header of the page or
class that the folder belongs to, then those named for the folder in ROOMS. The first failure ends the
search. A mutation that does not compile is counted apart.
"""

import argparse
import collections
import os
import random
import re
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LIST = os.path.join(ROOT, "tests", "mutation", "mutations.txt")
COPY = os.path.join(ROOT, "build", "mutate", "tree")
BUILD = os.path.join(ROOT, "build", "mutate", "build")
TEST_SECONDS = 240
MOST_TESTS = 8

# Tests for sources whose header no test includes. The longest prefix holds.
ROOMS = {
    "src/app": ["tst_mainwindow", "tst_sidebar"],
    "src/core": ["tst_posixfile", "tst_pathutil"],
    "src/core/ipc": ["tst_ipcclient", "tst_frame"],
    "src/share": ["tst_fileshareserver", "tst_sharegate", "tst_shareupload", "tst_shareswap",
                  "tst_filesharecontroller"],
    "src/analyzer": ["tst_directorywalk", "tst_diskanalyzerworker", "tst_duplicatescanner"],
    "src/wechat": ["tst_wechatscan", "tst_wechatclean", "tst_wechatfaults"],
    "src/vault": ["tst_vaultreader", "tst_vaultcontroller"],
    "src/search": ["tst_searchworker", "tst_indexbuilder", "tst_searchindexdb"],
    "src/search/grams": ["tst_gramindex", "tst_searchindexdb"],
    "src/search/text": ["tst_textreaders", "tst_binarydocuments", "tst_textencoding"],
    "src/search/query": ["tst_searchlanguage", "tst_searchworker"],
    "src/search/names": ["tst_namearena"],
    "src/cli": ["tst_cli"],
    "services/recoveryd": ["tst_recoveryd_results", "tst_recoveryd_sessions",
                           "tst_recoveryd_recovery", "tst_recoveryd_media"],
    "services/recoveryd/ext": ["tst_recoveryd_ext", "tst_recoveryd_ext_undelete"],
    "services/recoveryd/ntfs": ["tst_recoveryd_ntfs", "tst_recoveryd_ntfs_remains"],
    "services/recoveryd/fat": ["tst_recoveryd_fat", "tst_recoveryd_exfat"],
    "services/recoveryd/exfat": ["tst_recoveryd_exfat"],
    "services/recoveryd/xfs": ["tst_recoveryd_xfs", "tst_recoveryd_xfs_blocks",
                               "tst_recoveryd_xfs_log"],
    "services/recoveryd/btrfs": ["tst_recoveryd_btrfs"],
    "services/recoveryd/carve": ["tst_recoveryd_carving", "tst_recoveryd_formats"],
    "services/vaultd": ["tst_vaultd_store", "tst_vaultd_process", "tst_vaultd_restart"],
    "services/vaultd/keep": ["tst_vaultd_keep", "tst_vaultd_folder"],
    "services/common": ["tst_servicehost", "tst_servicelifecycle"],
}

# Folders of many classes: that a test includes one of them says little about the others.
GENERIC = {"ui/pages", "ui/common", "ui/common/utils", "ui/services"}

Mutation = collections.namedtuple("Mutation", "path occurrence old new")


def read(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as source:
        return source.read().split("\n")


def listed():
    mutations = []
    if not os.path.exists(LIST):
        return mutations
    with open(LIST, encoding="utf-8") as entries:
        blocks = re.split(r"\n\n+", entries.read())
    for block in blocks:
        lines = [line for line in block.split("\n") if line and not line.startswith("#")]
        if not lines:
            continue
        path, occurrence = lines[0].rsplit(":", 1)
        mutations.append(Mutation(path, int(occurrence), lines[1][1:], lines[2][1:]))
    return mutations


def place_of(mutation, lines):
    """Index of the line that is meant, or -1."""
    seen = 0
    for index, line in enumerate(lines):
        if line == mutation.old:
            seen += 1
            if seen == mutation.occurrence:
                return index
    return -1


# --- Drawing.

def negated(line):
    match = re.match(r"^(\s*(?:\} else )?if \()(.*)(\)(?: \{)?)$", line)
    if match and ";" not in line and match.group(2).count("(") == match.group(2).count(")"):
        return f"{match.group(1)}!({match.group(2)}){match.group(3)}"
    return None


def compared(line):
    if re.search(r"<[A-Za-z]|#include|template|operator|for \(auto", line):
        return None
    for old, new in ((" <= ", " < "), (" >= ", " > "), (" == ", " != "), (" != ", " == "),
                     (" < ", " <= "), (" > ", " >= "), (" && ", " || "), (" || ", " && ")):
        if line.count(old) == 1:
            return line.replace(old, new)
    return None


def dropped_call(line):
    match = re.match(r"^(\s+)(?!return\b|delete\b|emit\b|else\b|throw\b|Q_)[A-Za-z_][\w.:>-]*\(.*\);$", line)
    if match and line.count("(") == line.count(")") and "connect(" not in line:
        return match.group(1) + ";"
    return None


def dropped_return(line):
    match = re.match(r"^(\s+)return(?: (true|false))?;$", line)
    if not match:
        return None
    if match.group(2):
        return f"{match.group(1)}return {'false' if match.group(2) == 'true' else 'true'};"
    return match.group(1) + ";"


KINDS = (negated, compared, dropped_call, dropped_return)


def candidates(folders):
    files = subprocess.run(["git", "-C", ROOT, "ls-files", "--", *folders], check=True,
                           capture_output=True, text=True).stdout.split("\n")
    for path in files:
        if not path.endswith(".cpp") or path.endswith("main.cpp"):
            continue
        lines = read(path)
        for index, line in enumerate(lines):
            if re.match(r"^\s*//", line):
                continue
            for kind in KINDS:
                new = kind(line)
                if new is not None:
                    yield Mutation(path, lines[: index + 1].count(line), line, new), kind


def draw(count, seed, folders):
    """Rooms by turns, so that a large one does not crowd out the others; kinds by turns within."""
    known = set(listed())
    by_room = collections.defaultdict(lambda: collections.defaultdict(list))
    for mutation, kind in candidates(folders or ["src", "services"]):
        if mutation not in known:
            by_room["/".join(mutation.path.split("/")[:2])][kind].append(mutation)
    picker = random.Random(seed)
    rooms = sorted(by_room)
    weights = [sum(len(found) for found in by_room[room].values()) ** 0.5 for room in rooms]
    with open(LIST, "a", encoding="utf-8") as entries:
        for number in range(count):
            kinds = by_room[picker.choices(rooms, weights)[0]]
            found = kinds[KINDS[number % len(KINDS)]]
            if not found:
                continue
            drawn = found.pop(picker.randrange(len(found)))
            entries.write(f"{drawn.path}:{drawn.occurrence}\n-{drawn.old}\n+{drawn.new}\n\n")


# --- Running.

def included(path):
    with open(path, encoding="utf-8") as source:
        return set(re.findall(r'^#include "([^"]+)"', source.read(), re.M))


def includes_of_tests():
    """By test: its own includes and those of the fixtures beside it."""
    found = {}
    for folder, _, names in os.walk(os.path.join(ROOT, "tests")):
        for name in names:
            if not re.match(r"tst_\w+\.cpp$", name):
                continue
            includes = included(os.path.join(folder, name))
            for header in list(includes):
                fixture = os.path.join(folder, header)
                if os.path.exists(fixture):
                    includes |= included(fixture)
            found[name[:-4]] = includes
    return found


def tests_for(path, by_test):
    stem = re.sub(r"^(src|services)/", "", path)[:-4]
    # A source beside its header, then the class whose folder it is in, and so on upwards.
    wanted = [stem + ".h"]
    folder = os.path.dirname(stem)
    while "/" in folder and folder not in GENERIC:
        wanted += [folder + ".h", folder + "/"]
        folder = os.path.dirname(folder)
    tests = []
    for header in wanted:
        for test in sorted(by_test, key=lambda name: len(by_test[name])):
            hit = any(include.startswith(header) if header.endswith("/") else include == header
                      for include in by_test[test])
            if hit and test not in tests:
                tests.append(test)
    rooms = [room for room in ROOMS if path.startswith(room + "/")]
    rest = ROOMS[max(rooms, key=len)] if rooms else []
    return (tests[: MOST_TESTS - min(len(rest), 4)] + [test for test in rest if test not in tests])[:MOST_TESTS]


def quiet(command, seconds=None):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              stdin=subprocess.DEVNULL, timeout=seconds).returncode
    except subprocess.TimeoutExpired:
        return -1


def font():
    """Set-up puts it beside the sources; it is not in the copy."""
    with open(os.path.join(ROOT, "cmake", "fonts.cmake"), encoding="utf-8") as lines:
        return ROOT + re.search(r'"\$\{PROJECT_SOURCE_DIR\}(/[^"]+)"', lines.read()).group(1)


def prepare():
    os.makedirs(COPY, exist_ok=True)
    names = subprocess.run(["git", "-C", ROOT, "ls-files", "-z"], check=True, capture_output=True).stdout
    subprocess.run(["rsync", "-a", "--delete", "--files-from=-", "--from0", ROOT + "/", COPY + "/"],
                   input=names, check=True)
    subprocess.run(["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O0", f"-DMORVANE_ICON_FONT={font()}"], check=True, stdout=subprocess.DEVNULL)


def judge(mutation, tests, jobs):
    """caught by a test, "missed", "does not compile" or "gone"."""
    path = os.path.join(COPY, mutation.path)
    with open(path, encoding="utf-8") as source:
        original = source.read()
    lines = original.split("\n")
    place = place_of(mutation, lines)
    if place < 0:
        return "gone"
    known = subprocess.run(["ninja", "-C", BUILD, "-t", "targets", "all"], check=True,
                           capture_output=True, text=True).stdout
    try:
        lines[place] = mutation.new
        with open(path, "w", encoding="utf-8") as source:
            source.write("\n".join(lines))
        for test in tests:
            if f"\n{test}: phony" not in known:
                continue
            if quiet(["ninja", "-C", BUILD, "-j", str(jobs), test]) != 0:
                return "does not compile"
            if quiet(["ctest", "--test-dir", BUILD, "-R", f"^{test}$", "--timeout", str(TEST_SECONDS)]) != 0:
                return test
    finally:
        with open(path, "w", encoding="utf-8") as source:
            source.write(original)
    return "missed"


def run(only, jobs, report):
    mutations = [m for m in listed() if not only or only in m.path]
    prepare()
    by_test = includes_of_tests()
    table = collections.defaultdict(lambda: [0, 0])
    for number, mutation in enumerate(mutations, 1):
        verdict = judge(mutation, tests_for(mutation.path, by_test), jobs)
        line = f"{verdict}\t{mutation.path}:{mutation.occurrence}\t{mutation.old.strip()}\t{mutation.new.strip()}"
        print(f"[{number}/{len(mutations)}] {line}", flush=True)
        if report:
            with open(report, "a", encoding="utf-8") as lines:
                lines.write(line + "\n")
        if verdict in ("gone", "does not compile"):
            continue
        room = table["/".join(mutation.path.split("/")[:2])]
        room[0] += 1
        room[1] += verdict != "missed"
    print("\n| Room | Mutations | Found |\n|---|---|---|")
    for room in sorted(table):
        print(f"| `{room}` | {table[room][0]} | {table[room][1]} |")
    total, caught = (sum(room[i] for room in table.values()) for i in (0, 1))
    print(f"| all | {total} | {caught} ({100 * caught / max(total, 1):.0f} %) |")
    return 0


def check():
    gone = [m for m in listed() if not os.path.exists(os.path.join(ROOT, m.path))
            or place_of(m, read(m.path)) < 0]
    for mutation in gone:
        print(f"{mutation.path}:{mutation.occurrence}: no longer there: {mutation.old.strip()}")
    print(f"{len(listed())} mutations, {len(gone)} without their line")
    return 1 if gone else 0


def main():
    parser = argparse.ArgumentParser(description="Tells how many small faults the tests find.")
    commands = parser.add_subparsers(dest="command", required=True)
    running = commands.add_parser("run")
    running.add_argument("--only", default="")
    running.add_argument("--jobs", type=int, default=os.cpu_count())
    running.add_argument("--report", default="")
    drawing = commands.add_parser("draw")
    drawing.add_argument("count", type=int)
    drawing.add_argument("seed", type=int)
    drawing.add_argument("folders", nargs="*")
    commands.add_parser("check")
    options = parser.parse_args()
    if options.command == "draw":
        draw(options.count, options.seed, options.folders)
        return check()
    if options.command == "check":
        return check()
    return run(options.only, options.jobs, options.report)


if __name__ == "__main__":
    sys.exit(main())
