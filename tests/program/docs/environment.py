#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Whether the environment variables that library and programs read are where users look for them.

    tests/program/docs/environment.py

Ends with 1 and a line for each that docs/using.md or the manual page leaves out.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[3]
SOURCES = ["src", "log", "model", "sources", "apps", "sim", "calibration", "python", "gstreamer"]
PAGES = ["docs/using.md", "docs/stereo-camera.1"]

code = [path.read_text() for room in SOURCES for path in sorted((ROOT / room).rglob("*.[ch]pp"))]
names = sorted({name for text in code for name in re.findall(r'getenv\("(\w+)"\)', text)})
missing = [f"{page}: {name}" for page in PAGES for name in names if not re.search(rf"\b{name}\b", (ROOT / page).read_text())]
if not names:
    missing = ["no variables found"]
for line in missing:
    print(line)
sys.exit(1 if missing else 0)
