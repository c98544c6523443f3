#!/usr/bin/env python3
"""Tree checks, run by CTest (label packaging):

- the facts of one operating system (its paths, its names, its launchers and scripts) are
  written only in the platform files: security-console/platform/ and platform/;
- the program's settings are opened in one place, OsPlatform::applicationSettings: no QSettings
  by organisation and application name, nor a default one, outside the platform files;
- no CMakeLists.txt leaves a folder or a source out of the build because it is missing
  (`if(EXISTS ...)`): a missing part is a configure error, never a quietly smaller program.

    check_tree.py <source dir>
"""
import os
import re
import subprocess
import sys

SOURCE = os.path.realpath(sys.argv[1])
SELF = os.path.realpath(__file__)

OS_FACTS = re.compile(r"Library/Logs|MacOSX|/usr/bin/open|\.bat\b")
# QSettings("Org", "App") or a default-constructed QSettings.
OWN_SETTINGS = re.compile(r"QSettings\s*\(\s*\"[^\"/]*\"\s*,|QSettings\s+\w+\s*;|new\s+QSettings\s*(\(\s*\)|;)")
OS_FACT_HOMES = ("security-console/platform/", "platform/")
CODE = (".c", ".cpp", ".h", ".in", ".ui", ".py", ".sh", ".cmake", ".txt")
SCRIPTS = ("scripts/", "packaging/")
OPTIONAL_PART = re.compile(r"\b(else)?if\s*\(\s*EXISTS\b", re.IGNORECASE)


def candidates():
    """The tree's files: what git tracks or would (build trees, the bench's run-time files and
    whatever else .gitignore names are not the source); without git, a walk that skips build
    trees and hidden folders."""
    listed = subprocess.run(["git", "-C", SOURCE, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                            capture_output=True)
    if listed.returncode == 0:
        for rel in listed.stdout.decode().split("\0"):
            if rel and os.path.isfile(os.path.join(SOURCE, rel)):
                yield rel
        return
    for root, dirs, files in os.walk(SOURCE):
        dirs[:] = [d for d in dirs if not d.startswith(".")
                   and not os.path.exists(os.path.join(root, d, "CMakeCache.txt"))]
        for name in files:
            yield os.path.relpath(os.path.join(root, name), SOURCE)


def sources():
    for rel in candidates():
        path = os.path.join(SOURCE, rel)
        name = os.path.basename(rel)
        if os.path.realpath(path) == SELF:
            continue
        if name.endswith(CODE) or rel.startswith(SCRIPTS) and "." not in name:
            yield path, rel


def main():
    problems = []
    for path, rel in sources():
        with open(path, encoding="utf-8", errors="replace") as f:
            lines = f.readlines()
        for number, line in enumerate(lines, 1):
            found = OS_FACTS.search(line)
            if found and not rel.startswith(OS_FACT_HOMES):
                problems.append(f"{rel}:{number}: \"{found.group(0)}\" belongs behind the OS seam "
                                "(security-console/platform/)")
            if OWN_SETTINGS.search(line) and not rel.startswith(OS_FACT_HOMES) and rel.endswith((".cpp", ".h")):
                problems.append(f"{rel}:{number}: the program's settings come from OsPlatform::applicationSettings")
            if (os.path.basename(rel) == "CMakeLists.txt" or rel.endswith(".cmake")) and OPTIONAL_PART.search(line):
                problems.append(f"{rel}:{number}: if(EXISTS ...) drops a part of the build silently")
    for p in problems:
        print(p)
    print(f"{len(problems)} problem(s)")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
