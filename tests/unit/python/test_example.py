# SPDX-License-Identifier: Apache-2.0
"""The example draws what it says."""

import pathlib
import subprocess
import sys

import pytest

EXAMPLE = pathlib.Path(__file__).parents[3] / "examples" / "depth_plot.py"


def test_the_example_draws_the_simulated_camera(tmp_path):
    pytest.importorskip("matplotlib", reason="needs Debian's package python3-matplotlib")
    from matplotlib import image

    picture = tmp_path / "depth.png"
    command = [sys.executable, str(EXAMPLE), "--simulate", "--output", str(picture)]
    subprocess.run(command, check=True, timeout=540, stdout=subprocess.DEVNULL)
    pixels = image.imread(picture)[:, :, :3]
    assert pixels.shape[0] > 300 and pixels.shape[1] > 900
    thirds = [pixels[:, i * pixels.shape[1] // 3 : (i + 1) * pixels.shape[1] // 3] for i in range(3)]
    for third in thirds:
        assert third.std() > 0.05  # none of the three parts is blank


def test_the_wide_example_draws_and_measures(tmp_path):
    pytest.importorskip("matplotlib", reason="needs Debian's package python3-matplotlib")
    from matplotlib import image

    picture = tmp_path / "wide.png"
    command = [sys.executable, str(EXAMPLE.parent / "wide_depth.py"), "--simulate", "--output", str(picture)]
    done = subprocess.run(command, check=True, timeout=540, capture_output=True, text=True)
    nearest = float(done.stdout.splitlines()[-1].split()[2])
    assert 0.2 < nearest < 3  # the room is no larger
    pixels = image.imread(picture)[:, :, :3]
    assert pixels.std() > 0.1


def test_a_missing_recording_is_told_in_a_line(tmp_path):
    pytest.importorskip("matplotlib", reason="needs Debian's package python3-matplotlib")
    command = [sys.executable, str(EXAMPLE), "--replay", "/does/not/exist", "--calibration", "/does/not/exist"]
    done = subprocess.run(command, cwd=tmp_path, timeout=540, capture_output=True, text=True)
    assert done.returncode != 0 and "/does/not/exist" in done.stderr and "Traceback" not in done.stderr


@pytest.mark.parametrize("name, needs", [("depth_plot.py", "python3-matplotlib"), ("wide_depth.py", "python3-matplotlib"), ("segment_reader.py", "python3-numpy")])
def test_what_is_missing_is_told_in_a_line(name, needs, tmp_path):
    # Without the folders that packages are installed in, and without the module's.
    command = [sys.executable, "-I", "-S", str(EXAMPLE.parent / name)]
    done = subprocess.run(command, cwd=tmp_path, timeout=120, capture_output=True, text=True)
    assert done.returncode == 1 and done.stdout == ""
    assert done.stderr.count("\n") == 1 and needs in done.stderr and "Traceback" not in done.stderr
