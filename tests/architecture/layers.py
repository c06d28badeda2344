#!/usr/bin/env python3
"""Fails on an include or a link against the direction of the layers.

usage: layers.py SOURCE_FOLDER [PROGRAM_FOLDER]
"""
import pathlib
import re
import subprocess
import sys

# What the files of a folder may include from this tree. The first prefix that fits a file decides.
GROUND = ("client/app/ServerLink.h", "client/app/ClientCodes.h")  # what every view may know of the application
MAY_INCLUDE = [
    # The one place that knows which window the application opens.
    ("client/app/BackupApplication.cpp", ["kit/", "core/", "client/"]),
    ("kit/", ["kit/"]),
    ("core/", ["kit/", "core/"]),
    ("addons/", ["kit/", "addons/"]),
    ("server/", ["kit/", "core/", "addons/", "server/"]),
    ("ctl/", ["kit/", "core/", "ctl/"]),
    ("locale/", ["kit/", "core/", "locale/"]),
    # Inside the client the tools stand beside each other on the common ground.
    ("client/settings/", ["kit/", "core/", "client/settings/"]),
    ("client/uikit/", ["kit/", "core/", "client/uikit/", *GROUND]),
    ("client/selection/", ["kit/", "core/", "client/uikit/", "client/settings/", "client/selection/"]),
    ("client/status/", ["kit/", "core/", "client/uikit/", "client/settings/", *GROUND,
                        "client/status/"]),
    # The list is shared; the queue around it edits jobs in the tools' own views.
    ("client/jobqueue/KTJobListView", ["kit/", "core/", "client/uikit/", "client/settings/", *GROUND,
                                       "client/jobqueue/KTJobListView.h"]),
    ("client/jobqueue/", ["kit/", "core/", "client/uikit/", "client/settings/", *GROUND, "client/job/",
                          "client/backup/", "client/restore/", "client/compare/", "client/jobqueue/"]),
    ("client/job/", ["kit/", "core/", "client/uikit/", "client/settings/", *GROUND, "client/job/"]),
    ("client/addons/", ["kit/", "core/", "addons/", "client/uikit/", "client/job/", "client/addons/"]),
    ("client/backup/", ["kit/", "core/", "addons/", "client/uikit/", "client/settings/",
                        "client/selection/", "client/jobqueue/KTJobListView.h", "client/job/",
                        "client/addons/",
                        *GROUND, "client/backup/"]),
    ("client/catalogue/", ["kit/", "core/", "client/uikit/", "client/settings/",
                           "client/selection/", "client/job/", *GROUND,
                           "client/app/ServerQuestion.h", "client/app/Inquiry.h",
                           "client/catalogue/"]),
    ("client/restore/", ["kit/", "core/", "client/uikit/", "client/settings/", "client/selection/",
                         "client/job/", "client/addons/", *GROUND, "client/catalogue/",
                         "client/restore/"]),
    ("client/compare/", ["kit/", "core/", "client/uikit/", "client/settings/", "client/job/", *GROUND,
                         "client/catalogue/", "client/compare/"]),
    ("client/app/", ["kit/", "core/", "client/uikit/", "client/settings/", "client/app/"]),
    ("client/", ["kit/", "core/", "addons/", "client/"]),
]
NO_QT = ("kit/", "core/", "addons/", "server/", "ctl/", "locale/")
OURS = ("kit/", "core/", "addons/", "server/", "ctl/", "client/", "locale/", "tests/", "bench/")
# The kit is a platform: it knows no product.
PRODUCT_WORDS = re.compile(r"\bvelmora\b|backup", re.IGNORECASE)
# Names that other programs meet on disk.
PRODUCT_NAMES_ON_THE_WIRE = re.compile(r"velmora-\w*")


def include_faults(root):
    faults = []
    seen = 0
    for path in sorted(root.rglob("*")):
        name = path.relative_to(root).as_posix()
        if path.suffix not in (".h", ".cpp") or name.startswith("build/"):
            continue
        rule = next((allowed for prefix, allowed in MAY_INCLUDE if name.startswith(prefix)), None)
        if rule is None:
            continue
        seen += 1
        for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
            found = re.match(r'\s*#\s*include\s*([<"])([^>"]+)[>"]', line)
            if found:
                what = found.group(2)
                if what.startswith(OURS) and not what.startswith(tuple(rule)):
                    faults.append(f"{name}:{number}: must not include {what}")
                if name.startswith(NO_QT) and re.match(r"Q[A-Z]|Qt", what):
                    faults.append(f"{name}:{number}: no Qt below the client: {what}")
                if what == "QtWidgets":
                    faults.append(f"{name}:{number}: include the classes you use, not <QtWidgets>")
            elif name.startswith("kit/") and not name.endswith("CMakeLists.txt"):
                rest = PRODUCT_NAMES_ON_THE_WIRE.sub("", line)
                if PRODUCT_WORDS.search(rest):
                    faults.append(f"{name}:{number}: the kit knows no product: {line.strip()}")
    if seen < 50:
        faults.append(f"only {seen} files looked at: is {root} the source tree?")
    return faults


def link_faults(program):
    faults = []
    without_qt = [program / "backupctl", program / "Backup_Server/BackupServer",
                  program / "lib/libvelmorakit.so"]
    without_qt += sorted((program / "Backup_Server/add-ons").rglob("KT*"))
    for path in without_qt:
        needed = subprocess.run(["readelf", "-d", path], capture_output=True, text=True, check=True).stdout
        for library in re.findall(r"NEEDED.*\[(.*)\]", needed):
            if "Qt" in library:
                faults.append(f"{path.name} links {library}")
    return faults


def main():
    faults = include_faults(pathlib.Path(sys.argv[1]))
    if len(sys.argv) > 2:
        faults += link_faults(pathlib.Path(sys.argv[2]))
    print("\n".join(faults) or "the layers hold")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
