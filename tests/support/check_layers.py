#!/usr/bin/env python3
"""Refuses an #include by which a room leans on one that it may not know.

    check_layers.py ROOT          checks ROOT/src and ROOT/services
    check_layers.py --self-test   checks the check, on planted includes

A room is a folder; a file belongs to the deepest room around it. The link line of each library
says the same about object code; this also covers headers, which need no link.
"""

import os
import re
import sys
import tempfile

# What each room may include besides itself. Every room may include "core".
ROOMS = {
    "core": [],
    "core/ipc": [],
    "core/diagnostics": [],
    "core/controllers": ["core/ipc", "ui/common/models", "ui/common/utils"],
    "core/controllers/search": ["search"],
    "core/controllers/upgrade": ["core/ipc"],
    "search": ["core/controllers/search", "search/text"],
    "search/text": [],
    "analyzer": [],
    "wechat": ["analyzer"],
    "share": ["core/ipc"],
    "vault": ["core/ipc"],
    "ui/common/models": ["ui/common/utils"],
    "ui/common/utils": ["ui/common/models"],
    "ui/common": ["ui/common/models", "ui/common/utils"],
    "services": ["core/ipc", "vault"],
}
ENGINES = [room for room in ROOMS if room != "services"]
ROOMS["extract"] = ["search/text"]
ROOMS["ui/pages"] = ENGINES
ROOMS["cli"] = ["core/ipc", "core/controllers/search", "search", "analyzer", "share"]
ROOMS["app"] = ENGINES + ["ui/pages"]

# Pages never include each other; flows in app connect them. These are the dialogs and parts that a
# page opens itself. Besides them a page includes its own header and its private parts, in the
# folder named after it.
OWN_DIALOGS = {
    "filesearchpage": ["indexsettingsdialog", "keywordtaginput"],
    "indexsettingsdialog": ["keywordtaginput"],
    "partitionselectpage": ["scansettingsdialog"],
    "recentscanspage": ["recoveryhistorydialog", "recoveryprogresspage", "recoveryworkflowwindow",
                        "scanresultspage"],
    "recoveryhistorydialog": ["recoverydetaildialog"],
    "recoveryprogresspage": ["recoverydetaildialog"],
    "recoveryworkflowwindow": ["recoveryprogresspage", "scanresultspage"],
    "helpguidepage": ["auxiliarytoolspage"],
    "diskanalyzerpage": ["analyzersettingsdialog"],
    "wechatcleanpage": ["wechatcleansettingsdialog"],
    "realtimeprotectionpage": ["shieldsettingsdialog"],
    "vaultbrowserpage": ["authdialog"],
    "filesharepage": ["fileshareconfirmdialog", "filesharedetaildialog"],
}

INCLUDE = re.compile(r'^\s*#\s*include\s*["<]([^">]+)[">]')
SOURCE = (".h", ".cpp")


def room_of(path):
    """The deepest room around a path such as "core/ipc/framecodec.h"; None if there is none."""
    folder = os.path.dirname(path)
    while folder and folder not in ROOMS:
        folder = os.path.dirname(folder)
    return folder or None


def page_of(path):
    """The page that a file in ui/pages belongs to: its own name or that of the folder it is in."""
    return os.path.splitext(path[len("ui/pages/"):].split("/")[0])[0]


# Headers that two services share because they talk to each other.
SERVICE_SEAMS = {"vaultd": ["guard/guardprotocol.h", "guard/guardmap.h"]}


def part_of_service(path):
    """The folder in services: "common", "vaultd"."""
    return path.split("/")[1]


def complaint(path, included, is_quoted):
    """Why the file may not include this, or None. Paths are as written in includes; those of
    services begin with "services/"."""
    if included.endswith(".moc"):
        return None
    mine = room_of(path)
    if mine is None:
        return "the file stands in no room that the table knows"
    if mine == "services" and is_quoted and "/" in included and room_of(included) is None:
        included = "services/" + included
    other = room_of(included)
    if other is None:
        return "quoted includes name a room, from src/ on" if is_quoted else None
    if other == mine == "ui/pages":
        own, wanted = page_of(path), page_of(included)
        if own == wanted or wanted in OWN_DIALOGS.get(own, []):
            return None
        return "%s may not know %s" % (own, wanted)
    if other == mine == "services":
        if part_of_service(included) in ("common", part_of_service(path)):
            return None
        if included[len("services/"):] in SERVICE_SEAMS.get(part_of_service(path), []):
            return None
        return "services may not know each other"
    if other == mine or other == "core" or other in ROOMS[mine]:
        return None
    return "%s may not lean on %s" % (mine, other)


def check(root):
    """All complaints about the tree, as lines; and the number of files seen."""
    lines, seen = [], 0
    for top, prefix in (("src", ""), ("services", "services/")):
        base = os.path.join(root, top)
        for folder, _, names in sorted(os.walk(base)):
            for name in sorted(names):
                if not name.endswith(SOURCE):
                    continue
                seen += 1
                file = os.path.join(folder, name)
                path = prefix + os.path.relpath(file, base)
                with open(file, encoding="utf-8") as text:
                    for number, line in enumerate(text, 1):
                        match = INCLUDE.match(line)
                        reason = match and complaint(path, match.group(1), '"' in match.group(0))
                        if reason:
                            lines.append("%s:%d: %s: %s" % (os.path.relpath(file, root), number,
                                                            match.group(1), reason))
    return lines, seen


PLANTED = [  # file, include, may it be?
    ("src/core/ipc/a.cpp", '"core/ipc/b.h"', True),
    ("src/core/ipc/a.cpp", '"core/appmode.h"', True),
    ("src/core/ipc/a.cpp", "<QLocalSocket>", True),
    ("src/core/ipc/a.cpp", '"a.moc"', True),
    ("src/core/ipc/a.cpp", '"b.h"', False),
    ("src/core/ipc/a.cpp", '"../pathutil.h"', False),
    ("src/core/a.cpp", '"core/ipc/ipcclient.h"', False),
    ("src/core/controllers/a.h", '"ui/common/models/diskgroup.h"', True),
    ("src/core/controllers/a.h", '"ui/common/theme.h"', False),
    ("src/core/controllers/search/a.h", '"search/searchindexdb.h"', True),
    ("src/core/controllers/search/a.h", '"core/ipc/ipcclient.h"', False),
    ("src/core/controllers/upgrade/a.h", '"core/controllers/scancontroller.h"', False),
    ("src/search/a.h", "<ui/common/theme.h>", False),
    ("src/wechat/a.h", '"analyzer/duplicate_scanner.h"', True),
    ("src/analyzer/a.h", '"wechat/wechatcleanworker.h"', False),
    ("src/ui/common/a.h", '"ui/common/utils/formatutils.h"', True),
    ("src/ui/common/utils/a.h", '"ui/common/theme.h"', False),
    ("src/ui/common/a.h", '"ui/pages/filesearchpage.h"', False),
    ("src/ui/pages/a.h", '"share/filesharedb.h"', True),
    ("src/ui/pages/a.h", '"app/mainwindow.h"', False),
    ("src/ui/pages/a.h", '"common/servicehost.h"', False),
    ("src/ui/pages/aboutpage.cpp", '"ui/pages/aboutpage.h"', True),
    ("src/ui/pages/aboutpage.cpp", '"ui/pages/aboutpage/part.h"', True),
    ("src/ui/pages/aboutpage/part.cpp", '"ui/pages/aboutpage/part.h"', True),
    ("src/ui/pages/aboutpage.cpp", '"ui/pages/filesearchpage.h"', False),
    ("src/ui/pages/aboutpage.cpp", '"ui/pages/filesearchpage/part.h"', False),
    ("src/ui/pages/filesearchpage.cpp", '"ui/pages/indexsettingsdialog.h"', True),
    ("src/ui/pages/indexsettingsdialog.cpp", '"ui/pages/filesearchpage.h"', False),
    ("src/app/a.cpp", '"ui/pages/filesearchpage.h"', True),
    ("src/app/a.cpp", '"services/common/servicehost.h"', False),
    ("services/vaultd/a.cpp", '"common/servicehost.h"', True),
    ("services/vaultd/a.cpp", '"vaultd/store.h"', True),
    ("services/vaultd/a.cpp", '"recoveryd/store.h"', False),
    ("services/vaultd/a.cpp", '"vault/vaultrecord.h"', True),
    ("services/vaultd/a.cpp", '"share/sharestore.h"', False),
    ("src/newroom/a.cpp", '"core/appmode.h"', False),
]


def self_test():
    wrong = []
    for file, include, allowed in PLANTED:
        with tempfile.TemporaryDirectory() as root:
            os.makedirs(os.path.join(root, os.path.dirname(file)))
            with open(os.path.join(root, file), "w", encoding="utf-8") as text:
                text.write("// A file.\n#include %s\n" % include)
            lines, _ = check(root)
            if bool(lines) == allowed:
                wrong.append("%s with %s: got %s" % (file, include, lines))
    return wrong, len(PLANTED)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    lines, seen = self_test() if sys.argv[1] == "--self-test" else check(sys.argv[1])
    for line in lines:
        print(line)
    print("%d looked at, %d refused" % (seen, len(lines)))
    sys.exit(1 if lines or seen == 0 else 0)


if __name__ == "__main__":
    main()
