# SPDX-License-Identifier: Apache-2.0
"""Builds a wheel of the module `stereo_camera` with CMake, for pip (PEP 517). Needs what the C++ build needs.

`pip install . -C build-dir=build/release` uses an existing build folder, whose Python must be the one that runs pip.
Without it, the build is in build/python-<version>, where the next one continues.
"""

import base64
import hashlib
import os
import pathlib
import re
import subprocess
import sys
import sysconfig
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAME = "stereo_camera"


def version():
    return re.search(r"project\(StereoCamera VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]


def metadata():
    return f"""Metadata-Version: 2.1
Name: stereo-camera
Version: {version()}
Summary: Driver of a stereo fisheye camera
License: Apache-2.0
Requires-Python: >=3.9
Requires-Dist: numpy

""" + (ROOT / "docs" / "python.md").read_text(encoding="utf-8")


def compile_module(settings):
    """The module's file, up to date."""
    folder = (settings or {}).get("build-dir")
    build = pathlib.Path(folder).resolve() if folder else ROOT / "build" / f"python-{sysconfig.get_python_version()}"
    if not folder:  # each time, since the Python of an earlier build may be gone
        off = [f"-DSTEREO_CAMERA_BUILD_{part}=OFF" for part in ("TESTS", "APPS", "BENCHMARKS")]
        subprocess.run(
            ["cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DSTEREO_CAMERA_BUILD_PYTHON=ON",
             f"-DPython3_EXECUTABLE={sys.executable}", *off],
            check=True,
        )
    subprocess.run(["cmake", "--build", build, "--target", "stereo_camera_python",
                    "--parallel", str(os.cpu_count() or 1)], check=True)
    module = build / "python" / (NAME + sysconfig.get_config_var("EXT_SUFFIX"))
    if not module.exists():
        raise SystemExit(f"{build} builds the module for another Python than {sys.executable}")
    return module


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    module = compile_module(config_settings)
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    platform = re.sub(r"[-.]", "_", sysconfig.get_platform())
    tag = f"{python}-{python}-{platform}"
    info = f"{NAME}-{version()}.dist-info"
    wheel = f"Wheel-Version: 1.0\nGenerator: wheel_backend\nRoot-Is-Purelib: false\nTag: {tag}\n"
    files = {
        module.name: module.read_bytes(),
        f"{NAME}-stubs/__init__.pyi": (ROOT / "python" / "stereo_camera.pyi").read_bytes(),
        f"{NAME}-stubs/py.typed": (ROOT / "python" / "py.typed").read_bytes(),
        f"{info}/METADATA": metadata().encode(),
        f"{info}/WHEEL": wheel.encode(),
    }
    record = f"{info}/RECORD"
    lines = []
    for name, content in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        lines.append(f"{name},sha256={digest},{len(content)}\n")
    files[record] = ("".join(lines) + f"{record},,\n").encode()
    path = pathlib.Path(wheel_directory) / f"{NAME}-{version()}-{tag}.whl"
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, content in files.items():
            archive.writestr(name, content)
    return path.name


def build_sdist(sdist_directory, config_settings=None):
    raise SystemExit("there is no source archive of the module alone: install from the source tree")
