#!/usr/bin/env python3
"""Refuses tests that guess how long something takes.

    check_waits.py ROOT          checks ROOT/tests and ROOT/tour
    check_waits.py --self-test   checks the check, on planted lines

Two kinds of guesses make a test fail on a busy machine, or pass without having tested anything:
- a pause, after which the test assumes that something has happened. Wait for a condition instead:
  QTRY_*, QTest::qWaitFor, QSignalSpy::wait. The few pauses that cannot cause a failure are listed
  below, each with its reason.
- an upper limit of less than LEAST_LIMIT_MS for elapsed time. A limit is there to tell an operation
  that ends from one that hangs, or that takes many times as long.

Fake tools that sleep in their own scripts are not meant: there the delay is the subject.
"""

import os
import re
import sys
import tempfile

LEAST_LIMIT_MS = 3000

ABSENCE = "that nothing happens can only be waited for; a short pause misses a fault, no more"

# File, argument of the call: reason. An entry that matches nothing is refused as well.
ALLOWED = {
    ("tests/ui/tst_scanresultspage.cpp", "1100"): ABSENCE,
    ("tests/ui/tst_apptooltip.cpp", "2 * kDelay"): ABSENCE,
    ("tests/services/tst_recoveryd_sessions.cpp", "400"): ABSENCE,
    ("tests/services/guard/linkkeeper.cpp", "static_cast<unsigned long>(m_delayMs)"):
        "a keeper that is slow on purpose",
    ("tests/services/guard/tst_guard_kills.cpp", "1"):
        "the interval at which the ends of processes are looked for",
    ("tests/share/tst_fileshareserver.cpp", "20"): "sends in separate segments; together will do",
    ("tests/system/damaged.py", "0.1"): "between two looks at a file of another program",
    ("tests/system/machine.py", "0.1"): "between two looks at a socket file of another program",
    ("tests/system/machine.py", "0.2"): "between two looks at a file of another program",
    ("tests/system/shares.py", "0.1"): "between two tries of a server that starts",
    ("tour/tour.cpp", "kLookMs"): "the interval between two pictures that are compared",
}

PAUSE = re.compile(r"\b(?:qWait|qSleep|msleep|usleep|sleep|nanosleep|sleep_for|sleep_until)"
                   r"\s*\(\s*([^;]*?)\s*\)\s*;?\s*(?://.*|#.*)?$")
LIMIT = re.compile(r"\b(?:elapsed\(\)|[a-z]\w*Ms(?:\(\))?)\s*<=?\s*([0-9]+)\b")
COMMENT = re.compile(r"^\s*(//|#|\*)")
SOURCE = (".h", ".cpp", ".py")


def complaint(path, line, used):
    """Why the line is refused, or None. Notes the entry that allows it in `used`."""
    if COMMENT.match(line):
        return None
    pause = PAUSE.search(line)
    if pause:
        entry = (path, pause.group(1))
        if entry not in ALLOWED:
            return "a pause: wait for a condition"
        used.add(entry)
    for limit in LIMIT.findall(line):
        if int(limit) < LEAST_LIMIT_MS:
            return "a limit of %s ms: a busy machine takes longer" % limit
    return None


def check(root):
    """All complaints about the tree, as lines; the number of files seen; the entries in use."""
    lines, seen, used = [], 0, set()
    for top in ("tests", "tour"):
        for folder, _, names in sorted(os.walk(os.path.join(root, top))):
            for name in sorted(names):
                path = os.path.relpath(os.path.join(folder, name), root)
                if not name.endswith(SOURCE) or path == "tests/support/check_waits.py":
                    continue
                seen += 1
                with open(os.path.join(root, path), encoding="utf-8") as text:
                    for number, line in enumerate(text, 1):
                        reason = complaint(path, line, used)
                        if reason:
                            lines.append("%s:%d: %s" % (path, number, reason))
    return lines, seen, used


PLANTED = [  # file, line, may it be?
    ("tests/a/tst_a.cpp", "    QTest::qWait(100);", False),
    ("tests/a/tst_a.cpp", "    QTest::qWait(kDelay); // a moment", False),
    ("tests/a/tst_a.cpp", "    QThread::msleep(5);", False),
    ("tests/a/tst_a.cpp", "    std::this_thread::sleep_for(std::chrono::milliseconds(5));", False),
    ("tests/a/tst_a.cpp", "    ::usleep(5);", False),
    ("tests/a/helper.h", "    ::sleep(1);", False),
    ("tests/a/check.py", "    time.sleep(1)", False),
    ("tour/steps.cpp", "    QTest::qWait(70);", False),
    ("tour/tour.cpp", "        QTest::qWait(kLookMs); // between two looks", True),
    ("tests/ui/tst_apptooltip.cpp", "    QTest::qWait(2 * kDelay);", True),
    ("tests/ui/tst_apptooltip.cpp", "    QTest::qWait(3 * kDelay);", False),
    ("tests/a/tst_a.cpp", "    // QTest::qWait(100);", True),
    ("tests/a/tst_a.cpp", "    QVERIFY(QTest::qWaitFor(done, 100));", True),
    ("tests/a/tst_a.cpp", "    QVERIFY(QTest::qWaitForWindowActive(&page));", True),
    ("tests/a/tst_a.cpp", '    setTool("pdftotext", "exec sleep 20");', True),
    ("tests/a/tst_a.cpp", "    QVERIFY(clock.elapsed() < 300);", False),
    ("tests/a/tst_a.cpp", "    QVERIFY(shownMs < 300 && meter.longestMs() < 5000);", False),
    ("tests/a/tst_a.cpp", "    QVERIFY(clock.elapsed() >= 90 && clock.elapsed() <= 2999);", False),
    ("tests/a/tst_a.cpp", "    QVERIFY(clock.elapsed() >= 90 && clock.elapsed() < 3000);", True),
]


def self_test():
    wrong = []
    for file, line, allowed in PLANTED:
        with tempfile.TemporaryDirectory() as root:
            os.makedirs(os.path.join(root, os.path.dirname(file)))
            with open(os.path.join(root, file), "w", encoding="utf-8") as text:
                text.write("a file\n%s\n" % line)
            lines, _, _ = check(root)
            if bool(lines) == allowed:
                wrong.append("%s with %s: got %s" % (file, line.strip(), lines))
    return wrong, len(PLANTED)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    if sys.argv[1] == "--self-test":
        lines, seen = self_test()
    else:
        lines, seen, used = check(sys.argv[1])
        lines += ["%s: no pause of %s any more" % entry for entry in sorted(set(ALLOWED) - used)]
    for line in lines:
        print(line)
    print("%d looked at, %d refused" % (seen, len(lines)))
    sys.exit(1 if lines or seen == 0 else 0)


if __name__ == "__main__":
    main()
