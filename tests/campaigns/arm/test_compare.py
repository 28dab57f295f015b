# SPDX-License-Identifier: Apache-2.0
"""The comparison of results itself: it must notice what differs, and only that."""
import io
import struct

import compare
import pytest


def judged(expected, actual, tmp_path):
    folders = []
    for number, files in enumerate((expected, actual)):
        folder = tmp_path / str(number)
        folder.mkdir()
        for name, content in files.items():
            (folder / name).write_bytes(content)
        folders.append(folder)
    out = io.StringIO()
    return compare.compare(*folders, out), out.getvalue()


def floats(*values):
    return struct.pack(f"<{len(values)}f", *values)


def bits(*values):
    return struct.pack(f"<{len(values)}I", *values)


def test_same_bits_are_the_same(tmp_path):
    files = {"a-1.f32": floats(1, -0.0, float("inf")), "a-2.f32": b"", "b.u8": bytes(range(256))}
    wrong, told = judged(files, files, tmp_path)
    assert wrong == 0
    assert "results: 3 files, 259 values, 0 differ; without an explanation: 0 files" in told


def test_nans_are_the_same_whatever_their_payload_and_sign(tmp_path):
    wrong, _ = judged({"a.f32": bits(0x7FC00000, 0x7FC00001)}, {"a.f32": bits(0xFFC00000, 0x7FA00000)}, tmp_path)
    assert wrong == 0


@pytest.mark.parametrize(
    "name, expected, actual, distance",
    [
        ("a.f32", bits(0x3F800000), bits(0x3F800001), "up to 1 in"),
        ("a.f32", bits(0x00000001), bits(0x80000002), "up to 3 in"),
        ("a.f32", floats(0.0), floats(-0.0), "up to 0 in"),
        ("a.f32", floats(1.0), floats(float("nan")), "1 of 1"),
        ("a.f64", struct.pack("<d", 1.0), struct.pack("<Q", 0x3FEFFFFFFFFFFFFF), "up to 1 in"),
        ("a.u8", b"\x00\xff", b"\x00\x0f", "up to 240 in"),
    ],
)
def test_one_value_that_differs_is_noticed(name, expected, actual, distance, tmp_path):
    wrong, told = judged({name: expected}, {name: actual}, tmp_path)
    assert wrong == 1
    assert f"DIFFERENT {name}" in told
    assert distance in told


def test_what_is_missing_or_shorter_is_noticed(tmp_path):
    wrong, told = judged({"a.u8": b"1", "b.u8": b"12"}, {"b.u8": b"1", "c.u8": b"1"}, tmp_path)
    assert wrong == 3
    assert told.count("MISSING") == 2


def test_nothing_at_all_is_no_success(tmp_path):
    assert judged({}, {}, tmp_path)[0] == 1
    (tmp_path / "again").mkdir()
    only = {"ingredient-sin.f64": struct.pack("<d", 1.0)}
    assert judged(only, only, tmp_path / "again")[0] == 1


def test_ingredients_may_differ(tmp_path):
    value = {"a.u8": b"1"}
    wrong, told = judged(
        {"ingredient-sin.f64": struct.pack("<d", 1.0), **value}, {"ingredient-sin.f64": struct.pack("<d", 2.0), **value}, tmp_path
    )
    assert wrong == 0
    assert "1 differ" in told
