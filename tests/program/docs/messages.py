#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Whether the messages that the guide to troubleshooting quotes are still those of the sources.

    tests/program/docs/messages.py

A quotation is what stands in code at the head of an entry (before its <br>) or in the first column of a table. Numbers and
names are put in when a message is made, so pairs of words are looked for that stand between such: four in five of a
quotation's have to be in the strings of the sources. Ends with 1 and a line for each quotation that is not there.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[3]
PAGE = ROOT / "docs" / "troubleshooting.md"
SOURCES = ["src/**/*.cpp", "apps/**/*.cpp", "model/*.hpp", "sources/*.cpp", "sim/*.cpp", "calibration/*.cpp", "python/*.cpp", "examples/*"]
# Said by the compiler, the loader, OpenCV, the interpreter.
OTHERS = re.compile(
    r"terminate called|Could not find a package|… not compatible|error while loading|DSO missing|undefined reference"
    r"|ModuleNotFoundError|No module named|TypeError: cannot|!_map1|no element"
)
PUT_IN = re.compile(r"…|'|: |\S*[0-9/]\S*|\S+\.\w+|\bx\b")  # what may be, and where strings are joined


def pairs(text):
    """Neighbouring words."""
    found = []
    for piece in PUT_IN.split(text):
        words = re.findall(r"[A-Za-z\"_-]+", piece)
        found += zip(words, words[1:])
    return found


def literals():
    """Pairs of words in the strings of the sources; neighbouring strings are one."""
    found = set()
    for pattern in SOURCES:
        for path in ROOT.glob(pattern):
            text = re.sub(r'"\s*"', "", path.read_text(encoding="utf-8"))
            for string in re.findall(r'"((?:[^"\\\n]|\\.)*)"', text):
                found.update(pairs(string.replace('\\"', '"').replace("\\n", " ")))
    return found


def quotations():
    text = re.sub(r"\n +", " ", PAGE.read_text(encoding="utf-8"))
    heads = re.findall(r"^- (.*?)<br>", text, re.M) + re.findall(r"^\| (`.*?`) \|", text, re.M)
    for head in heads:
        for double, single in re.findall(r"``(.+?)``|`([^`]+)`", head):
            yield double or single


def main():
    known = literals()
    count = 0
    missing = []
    for quotation in quotations():
        wanted = pairs(quotation)
        if OTHERS.search(quotation) or not wanted:
            continue
        count += 1
        if sum(pair in known for pair in wanted) < 0.8 * len(wanted):
            missing.append(quotation)
    for quotation in missing:
        print(f"{PAGE.name}: no source says '{quotation}'")
    if count < 40:
        print(f"only {count} quotations were found: has the page another form?")
        return 1
    print(f"{count} quotations, {len(missing)} not found")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
