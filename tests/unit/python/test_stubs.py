# SPDX-License-Identifier: Apache-2.0
"""The stubs are the module's; everything says what it is."""

import ast
import inspect
import os
import pathlib
import subprocess
import sys

import pytest

import stereo_camera as sc

STUBS = pathlib.Path(sc.__file__).with_name("stereo_camera.pyi")


def public(names):
    return {name for name in names if not name.startswith("_")}


def stub_names(body):
    names = set()
    for node in body:
        if isinstance(node, (ast.ClassDef, ast.FunctionDef)):
            names.add(node.name)
        elif isinstance(node, ast.AnnAssign):
            names.add(node.target.id)
    return public(names)


def test_every_public_name_is_in_both():
    tree = ast.parse(STUBS.read_text())
    assert stub_names(tree.body) == public(vars(sc))
    for node in tree.body:
        if isinstance(node, ast.ClassDef):
            kind = getattr(sc, node.name)
            if issubclass(kind, tuple):
                assert tuple(n.target.id for n in node.body) == kind._fields
            else:
                assert stub_names(node.body) == public(vars(kind)), node.name


def test_everything_is_documented():
    for name in public(vars(sc)) - {"NO_DEVICE"}:
        item = getattr(sc, name)
        assert len(inspect.getdoc(item)) > 15, name
        if inspect.isclass(item) and not issubclass(item, (tuple, Exception)):
            for member in public(vars(item)):
                assert inspect.getdoc(getattr(item, member)), f"{name}.{member}"


def run_module(module, *arguments, folder):
    environment = dict(os.environ, MYPYPATH=str(STUBS.parent), PYTHONPATH=str(STUBS.parent))
    command = [sys.executable, "-m", module, *arguments]
    done = subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True, timeout=540)
    return done.returncode, done.stdout + done.stderr


def test_signatures_are_those_of_the_stubs(tmp_path):
    pytest.importorskip("mypy", reason="needs Debian's package mypy")
    kinds = ["StereoCamera", "VirtualCamera", "SimulatedCamera", "ReplayCamera", "SystemLog", "VideoCapture", "WideDepth"]
    # The classes have a metaclass of pybind11's, which no checker needs to know; logs are made by the camera.
    allowed = [f"stereo_camera.{kind}" for kind in kinds] + ["stereo_camera.SystemLog.__init__"]
    (tmp_path / "allowed").write_text("\n".join(allowed))
    code, text = run_module("mypy.stubtest", "stereo_camera", "--allowlist", str(tmp_path / "allowed"), folder=tmp_path)
    assert code == 0, text


SCRIPT = """
import numpy as np
import stereo_camera as sc
from numpy.typing import NDArray

class Source(sc.VideoCapture):
    def read(self) -> NDArray[np.uint8] | None:
        return np.zeros((400, 928, 3), np.uint8)

with sc.VirtualCamera(Source()) as camera:
    frame = camera.getStereoFrame()
    if frame is not None:
        left, right, stamp = frame
        reveal_type(stamp)
    reveal_type(camera.getRectStereoFrame(view=True))
    reveal_type(camera.getDepthFrame(np.zeros((4, 4), np.float32)).dtype)
    reveal_type(camera)
"""


def test_a_strict_checker_accepts_a_script(tmp_path):
    pytest.importorskip("mypy", reason="needs Debian's package mypy")
    (tmp_path / "script.py").write_text(SCRIPT)
    code, text = run_module("mypy", "--strict", "script.py", folder=tmp_path)
    assert code == 0, text
    for revealed in ("builtins.int", "stereo_camera.RectViewFrame", "floating", "stereo_camera.VirtualCamera"):
        assert revealed in text
    (tmp_path / "wrong.py").write_text("import stereo_camera as sc\nsc.StereoCamera().setRawFrameSize('large')\n")
    code, text = run_module("mypy", "--strict", "wrong.py", folder=tmp_path)
    assert code == 1 and "arg-type" in text
