#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares two folders of results that arm_results wrote, bit for bit.

    compare.py EXPECTED ACTUAL

Prints one line for each kind of result: files, values, how many differ and how far. Two NaN are the same whatever their
sign and payload: which operand's payload a sum hands on, language and compilers leave open, and processors differ.
Ends with 1 if there is a difference that EXPLAINED does not allow, a result is missing or in excess, or there are none.
"""
import fnmatch
import pathlib
import re
import sys

import numpy as np

TYPES = {".u8": np.uint8, ".f32": np.float32, ".f64": np.float64}

# Pattern of file names, largest share of values that may differ, by how many units in the last place at most, and why.
EXPLAINED = [
    # What the library is made from and not what it gives; see docs/accuracy.md.
    ("ingredient-*", 1.0, None, "C library and OpenCV, not results"),
]


def steps(values):
    """Floating-point numbers as integers, so that neighbours differ by 1; zeros of both signs are one number."""
    kind = np.int32 if values.dtype == np.float32 else np.int64
    bits = values.view(kind)
    return np.where(bits < 0, np.iinfo(kind).min - bits, bits).astype(np.int64)


def difference(expected, actual):
    """Indices at which two arrays of the same length differ, and the distance there in units in the last place."""
    if expected.dtype == np.uint8:
        where = np.flatnonzero(expected != actual)
        return where, np.abs(expected[where].astype(int) - actual[where].astype(int))
    bits = np.uint32 if expected.dtype == np.float32 else np.uint64
    unlike = expected.view(bits) != actual.view(bits)
    where = np.flatnonzero(unlike & ~(np.isnan(expected) & np.isnan(actual)))
    return where, np.abs(steps(expected[where]) - steps(actual[where]))


def allowed(name, share, furthest):
    for pattern, most, distance, _ in EXPLAINED:
        if fnmatch.fnmatch(name, pattern):
            return share <= most and (distance is None or furthest <= distance)
    return False


def compare(expected_folder, actual_folder, out=sys.stdout):
    """Number of files that differ without an explanation, or are in one folder only."""
    names = {path.name for path in expected_folder.iterdir()} | {path.name for path in actual_folder.iterdir()}
    kinds = {}
    wrong = 0
    for name in sorted(names):
        type_ = TYPES[pathlib.Path(name).suffix]
        kind = kinds.setdefault(re.sub(r"-\d+(?=[-.])", "", name), {"files": 0, "values": 0, "differ": 0, "far": 0.0})
        kind["files"] += 1
        paths = (expected_folder / name, actual_folder / name)
        missing = [str(path) for path in paths if not path.exists()]
        if missing:
            print(f"MISSING {missing[0]}", file=out)
            wrong += 1
            continue
        expected, actual = (np.fromfile(path, type_) for path in paths)
        kind["values"] += expected.size
        if expected.size != actual.size:
            print(f"DIFFERENT {name}: {expected.size} values and {actual.size}", file=out)
            wrong += 1
            continue
        where, distance = difference(expected, actual)
        if where.size:
            furthest = float(distance.max())
            kind["differ"] += where.size
            kind["far"] = max(kind["far"], furthest)
            if not allowed(name, where.size / expected.size, furthest):
                first = where[0]
                print(f"DIFFERENT {name}: {where.size} of {expected.size} values, up to {furthest:g} in the last place; "
                      f"first {expected[first]!r} and {actual[first]!r} at {first}", file=out)
                wrong += 1
    for name, kind in kinds.items():
        told = f"{kind['differ']} differ, up to {kind['far']:g} in the last place" if kind["differ"] else "identical"
        print(f"{name:45} {kind['files']:4} files {kind['values']:9} values  {told}", file=out)
    results = [kind for name, kind in kinds.items() if not name.startswith("ingredient")]
    print(f"results: {sum(k['files'] for k in results)} files, {sum(k['values'] for k in results)} values, "
          f"{sum(k['differ'] for k in results)} differ; without an explanation: {wrong} files", file=out)
    return wrong if results else 1


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(1 if compare(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])) else 0)
