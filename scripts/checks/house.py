# SPDX-License-Identifier: MIT
"""What the checks share: the folders of the tree and the way a finding is told."""

import argparse
import pathlib
import re
import sys

ROOMS = ("ds", "text", "bdt", "streams", "tasks", "sockets", "files")
LIBRARY = ROOMS + ("posix", "inc", "outside")
AROUND = ("tests", "testing", "bench", "fuzz", "examples", "tools", "torture", "python", "scripts")
SHOWN = 40  # findings; more than that are one finding


def options(text):
    parser = argparse.ArgumentParser(description=text)
    home = pathlib.Path(__file__).resolve().parents[2]
    parser.add_argument("--tree", type=pathlib.Path, default=home, help="the tree to look at")
    return parser


def sources(tree, folders):
    """Every C++ file of the folders, as paths from the root of the tree."""
    found = []
    for folder in folders:
        for path in sorted((tree / folder).rglob("*")):
            if path.suffix in (".h", ".cpp"):
                found.append(path.relative_to(tree))
    return found


def public_headers(tree):
    """inc/*.h, and what they include of outside/, as names for #include."""
    unread = [path.relative_to(tree) for path in sorted((tree / "inc").glob("*.h"))]
    names = [path.name for path in unread]
    while unread:
        text = (tree / unread.pop()).read_text()
        for name in re.findall(r'^\s*#\s*include\s*"(outside/[^"]+)"', text, re.MULTILINE):
            if name not in names:
                names.append(name)
                unread.append(name)
    return names


def finish(name, findings, count):
    """Prints the findings, one a line, and ends the program."""
    for finding in findings[:SHOWN]:
        print(finding)
    if len(findings) > SHOWN:
        print("...")
    if count == 0:
        findings = ["nothing"]
        print(f"{name}: there was nothing to look at")
    print(f"{name}: {count} looked at, {len(findings)} wrong")
    sys.exit(1 if findings else 0)
