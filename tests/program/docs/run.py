#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs what a page of the documentation tells its reader to type, and compiles what it tells them to compile.

    tests/program/docs/run.py PAGE BUILD          BUILD: the build tree whose programs are meant
    tests/program/docs/run.py --check PAGE...     whether every block says what it is; runs nothing

Each fenced block names its language. In the order of the page, in an empty folder from which the project's own folders can
be reached as from its root:

    sh          is run, by bash, and has to end with 0
    cpp, c      is compiled against the library, with the build's own flags, and run
    python      is run
    cmake, yaml, text, make
                is only shown

A comment in front of a block changes that:

    <!-- file: NAME -->         the block is the content of this file, which later blocks may use
    <!-- compiled only: WHY --> a program is compiled, but not run
    <!-- not run: WHY -->       nothing is done; WHY tells what it would take
    <!-- namespace -->          run where the stream's receiver is this machine and nothing leads out

Ends with 1 where something failed, with 77 if a page's commands cannot be run here.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

RUN = {"sh", "cpp", "c", "python"}
SHOWN = {"cmake", "yaml", "text", "make"}
ROOT = pathlib.Path(__file__).resolve().parents[3]
SECONDS = 600  # for one block; only passes where something hangs


class Block:
    def __init__(self, page, line, language, note, text):
        self.where = f"{page}:{line}"
        self.language = language
        self.note = note
        self.text = text

    def named_file(self):
        match = re.fullmatch(r"file: (\S+)", self.note)
        return match.group(1) if match else None


def blocks_of(page):
    """The page's fenced blocks in order."""
    blocks = []
    note = ""
    lines = pathlib.Path(page).read_text(encoding="utf-8").split("\n")
    number = 0
    while number < len(lines):
        line = lines[number]
        fence = re.fullmatch(r"```(\S*)", line.strip())
        comment = re.fullmatch(r"<!-- (.*) -->", line.strip())
        if fence:
            start = number
            number += 1
            text = []
            while number < len(lines) and lines[number].strip() != "```":
                text.append(lines[number])
                number += 1
            blocks.append(Block(page, start + 1, fence.group(1), note, "\n".join(text) + "\n"))
            note = ""
        elif comment:
            note = comment.group(1)
        elif line.strip():
            note = ""
        number += 1
    return blocks


def faults_of(blocks):
    """What the blocks leave open, a line each."""
    notes = re.compile(r"|file: \S+|(compiled only|not run): .{8,}|namespace")
    faults = []
    for block in blocks:
        if block.language not in RUN | SHOWN:
            faults.append(f"{block.where}: a block of '{block.language}', which is none of {sorted(RUN | SHOWN)}")
        elif not notes.fullmatch(block.note):
            faults.append(f"{block.where}: '{block.note}' is no note that a block can have")
    return faults


def prepare(folder, build):
    """Makes the project's own entries reachable by their names; what is written beside them stays here."""
    for entry in ROOT.iterdir():
        if entry.name not in {".git", "build", "demo"}:
            (folder / entry.name).symlink_to(entry)
    # Pages speak of the build that the scripts make.
    (folder / "build").mkdir()
    (folder / "build" / "release").symlink_to(build)


def run(block, build, folder, environment):
    file = block.named_file()
    if file:
        if (folder / file).is_symlink():
            print(f"{block.where}: {file} is the project's own, a page does not replace it")
            return False
        (folder / file).write_text(block.text, encoding="utf-8")
        return True
    if block.note.startswith("not run:") or block.language not in RUN:
        return True
    if block.language == "sh":
        command = ["bash", "-euo", "pipefail", "-c", block.text]
    elif block.language == "python":
        command = ["/usr/bin/python3", "-c", block.text]
    else:
        source = folder / f"block.{block.language}"
        source.write_text(block.text, encoding="utf-8")
        # The build knows how: its own file of one program, with this source in its place.
        flags = (build / "docs" / "flags.txt").read_text(encoding="utf-8").split("\n")
        compiler = flags[0] if block.language == "cpp" else "cc"
        own = [flag for flag in flags[1:] if flag] if block.language == "cpp" else ["-Wall", "-Werror"]
        if "<sim/" in block.text or "<sources/" in block.text:
            own.append("-std=c++20")  # the cameras without hardware take it
        command = [compiler, str(source), "-o", str(folder / "block")] + own
        if not finish(command, block, folder, environment):
            return False
        if block.note.startswith("compiled only:"):
            return True
        command = [str(folder / "block")]
    if block.note == "namespace":
        command = [str(ROOT / "scripts" / "in-own-network")] + command
    return finish(command, block, folder, environment)


def finish(command, block, folder, environment):
    done = subprocess.run(command, cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=SECONDS, check=False)
    if done.returncode != 0:
        print(f"{block.where}: ended with {done.returncode}\n{block.text}\n{done.stdout.decode(errors='replace')}")
    return done.returncode == 0


def main():
    if sys.argv[1:2] == ["--check"] and len(sys.argv) > 2:
        faults = [fault for page in sys.argv[2:] for fault in faults_of(blocks_of(page))]
        print("\n".join(faults))
        return 1 if faults else 0
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    page, build = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()
    blocks = blocks_of(page)
    if faults := faults_of(blocks):
        print("\n".join(faults))
        return 1
    environment = dict(os.environ)
    programs = [build / "apps" / "stereo-camera", build / "examples"]
    environment["PATH"] = os.pathsep.join([str(each) for each in programs] + [environment["PATH"]])
    environment["PYTHONPATH"] = str(build / "python")
    environment["GST_PLUGIN_PATH"] = str(build / "gstreamer" / "plugin")
    with tempfile.TemporaryDirectory(prefix="stereo-camera-docs-") as name:
        folder = pathlib.Path(name)
        prepare(folder, build)
        for block in blocks:
            if not run(block, build, folder, environment):
                return 1
    done = [block for block in blocks if block.language in RUN and not block.note.startswith("not run:")]
    print(f"{page}: {len(done)} of {len(blocks)} blocks run")
    return 0


if __name__ == "__main__":
    sys.exit(main())
