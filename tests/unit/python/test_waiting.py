# SPDX-License-Identifier: Apache-2.0
"""Reads that wait: time-outs, signals, and those that nobody can answer."""

import os
import signal
import subprocess
import sys
import textwrap
import threading
import time

import numpy as np
import pytest
from conftest import Pictures, await_that, camera_on, side_by_side

import stereo_camera as sc

FRAMES = [
    lambda c, **limit: c.getRawFrame(**limit),
    lambda c, **limit: c.getStereoFrame(**limit),
    lambda c, **limit: c.getRectStereoFrame(**limit),
    lambda c, **limit: c.getRectStereoFrame(view=True, **limit),
]
CLOUDS = [
    lambda c, **limit: c.getPointCloud(**limit),
    lambda c, **limit: c.getPointCloud(colored=True, **limit),
]


class Silent(Pictures):
    """A device that is open and delivers nothing."""

    def read(self):
        super().read()


@pytest.mark.parametrize("read", FRAMES + CLOUDS)
def test_a_timeout_ends_a_read(read):
    camera = camera_on(Silent())
    camera.startCapture()
    for seconds in (0, 0.05, 1):
        begun = time.monotonic()
        with pytest.raises(TimeoutError, match="within the timeout"):
            read(camera, timeout=seconds)
        assert time.monotonic() - begun >= seconds
    camera.stopCapture()
    assert read(camera, timeout=10) is None


def test_a_timeout_ends_colored_depth(simulated):
    simulated.startCapture()
    simulated.startStereoCompute()
    assert simulated.getPointCloud(timeout=120) is not None
    assert simulated.getDepthFrame(timeout=120) is not None
    with pytest.raises(TimeoutError):
        simulated.getDepthFrame(timeout=0)
    assert simulated.getDepthFrame(simulated.m_disparityFrame.second, timeout=0).dtype == np.float32


def test_a_timeout_changes_nothing_for_a_read_that_is_answered(simulated):
    simulated.startCapture()
    stamps = [simulated.getRawFrame(timeout=120).timestamp for _ in range(30)]
    assert stamps == sorted(set(stamps))


@pytest.mark.parametrize("timeout, error", [(-1, ValueError), (float("nan"), ValueError), ("1", TypeError)])
def test_what_is_no_timeout_is_refused(simulated, timeout, error):
    with pytest.raises(error):
        simulated.getRawFrame(timeout=timeout)


def test_a_timeout_holds_for_what_an_override_reads():
    class Passing(sc.VirtualCamera):
        def getStereoFrame(self):
            return super().getStereoFrame()

    camera = camera_on(Silent(), Passing)
    camera.startCapture()
    with pytest.raises(TimeoutError):
        camera.getRectStereoFrame(timeout=0.2)


@pytest.mark.parametrize("read", FRAMES + CLOUDS)
def test_a_read_that_nobody_can_answer_raises_at_once(read):
    is_cloud = read in CLOUDS
    closed = sc.StereoCamera(sc.NO_DEVICE)
    with pytest.raises(RuntimeError, match="disparities" if is_cloud else "not open"):
        read(closed)
    closed.startCapture()
    with pytest.raises(RuntimeError, match="disparities" if is_cloud else "not open"):
        read(closed)
    opened = camera_on(Pictures())
    with pytest.raises(RuntimeError, match="startStereoCompute" if is_cloud else "startCapture"):
        read(opened)
    with pytest.raises(TimeoutError):  # somebody may start it meanwhile
        read(opened, timeout=0.01)


def test_a_cloud_without_a_worker_raises_also_after_one_was_stopped(simulated):
    simulated.startCapture()
    simulated.startStereoCompute()
    assert simulated.getPointCloud() is not None
    simulated.stopStereoCompute()
    with pytest.raises(RuntimeError, match="startStereoCompute"):
        simulated.getPointCloud()
    assert simulated.getDepthFrame() is None  # says so by itself


def test_a_camera_that_publishes_by_hand_is_waited_for():
    camera = sc.StereoCamera(sc.NO_DEVICE)
    eyes = side_by_side(1)[:, :64].copy(), side_by_side(2)[:, :64].copy()
    camera.m_rawFrame = (*eyes, 1)
    stop = threading.Event()

    def publish():
        stamp = 1
        while not stop.is_set():
            stamp += 1
            camera.m_rawFrame = (*eyes, stamp)
            time.sleep(0.001)

    publisher = threading.Thread(target=publish)
    publisher.start()
    try:
        assert np.array_equal(camera.getStereoFrame().left, eyes[0])
    finally:
        stop.set()
        publisher.join()


def run(script, mark):
    """The script in a process of its own that is interrupted once it has made the file `mark`: (status, output, errors)."""
    head = f"""
        import pathlib, signal, threading
        import stereo_camera as sc

        class Silent(sc.VideoCapture):
            def __init__(self):
                super().__init__()
                self.gone = threading.Event()
            def read(self):
                self.gone.wait(0.01)
            def release(self):
                self.gone.set()

        def interrupted(read):
            # The mark is made by another thread, which gets its turn once this one waits in the read.
            reading = threading.Event()
            def mark():
                reading.wait()
                pathlib.Path({str(mark)!r}).touch()
            threading.Thread(target=mark).start()
            try:
                reading.set()
                read()
            except KeyboardInterrupt:
                signal.signal(signal.SIGINT, signal.SIG_IGN)
                print("interrupted", flush=True)
    """
    process = subprocess.Popen(
        [sys.executable, "-c", textwrap.dedent(head) + textwrap.dedent(script)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    try:
        await_that(lambda: mark.exists() or process.poll() is not None)
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=120)
    finally:
        process.kill()
    return process.returncode, out.splitlines(), err


@pytest.mark.parametrize(
    "read", ["getRawFrame()", "getStereoFrame(timeout=1000)", "getRectStereoFrame()", "getPointCloud(timeout=1000)"]
)
def test_ctrl_c_ends_a_read(read, tmp_path):
    status, out, err = run(
        f"""
        camera = sc.VirtualCamera(Silent())
        camera.startCapture()
        interrupted(lambda: camera.{read})
        """,
        tmp_path / "waiting",
    )
    assert status == 0 and "interrupted" in out, err


def test_ctrl_c_passes_through_an_override(tmp_path):
    status, out, err = run(
        """
        class Passing(sc.VirtualCamera):
            def getStereoFrame(self):
                return super().getStereoFrame()

        camera = Passing(Silent())
        camera.startCapture()
        interrupted(camera.getRectStereoFrame)
        """,
        tmp_path / "waiting",
    )
    assert status == 0 and "interrupted" in out, err


def test_a_handler_that_raises_nothing_lets_the_read_go_on():
    handled = []
    former = signal.signal(signal.SIGUSR1, lambda *_: handled.append(1))
    try:
        camera = camera_on(Silent())
        camera.startCapture()
        timer = threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGUSR1))
        timer.start()
        with pytest.raises(TimeoutError):
            camera.getRawFrame(timeout=2)
        timer.join()
        await_that(lambda: handled)
    finally:
        signal.signal(signal.SIGUSR1, former)
    assert handled == [1]


class TestWantOfACalibration:
    """The worker would end the process with its first frame."""

    def test_without_a_calibration(self):
        camera = sc.VirtualCamera(Pictures())
        camera.setRawFrameSize((928, 400))
        camera.setRectFrameSize((64, 48))
        with pytest.raises(RuntimeError, match="no calibration"):
            camera.startStereoCompute()
        camera.startCapture()
        with pytest.raises(RuntimeError, match="no calibration"):
            camera.startStereoCompute()
        assert not camera.m_computeThread and not camera.m_isComputing

    def test_without_a_rectified_size(self, simulated):
        simulated.setRectFrameSize((0, 0))
        with pytest.raises(RuntimeError, match="no rectified size"):
            simulated.startStereoCompute()
        simulated.startCapture()
        simulated.setRectFrameSize((64, 48))
        with pytest.raises(RuntimeError, match="startCapture ran without"):
            simulated.startStereoCompute()

    def test_that_went_before_the_capture_started(self, simulated):
        assert simulated.startStereoCompute()  # all is there, for the start to come
        simulated.setRectFrameSize((0, 0))
        with pytest.raises(RuntimeError, match="no rectified size"):
            simulated.startCapture()
        simulated.setRectFrameSize((64, 48))
        simulated.startCapture()
        assert simulated.getPointCloud(timeout=120) is not None

    def test_is_none_where_an_override_feeds_the_worker(self):
        class Fed(sc.StereoCamera):
            def getRectStereoFrame(self, view=False):
                eye = np.zeros((48, 64, 3), np.uint8)
                return sc.RectViewFrame(eye, eye, eye, 1)

        with Fed(sc.NO_DEVICE) as camera:
            assert camera.startStereoCompute()


def test_setters_check_their_values(simulated):
    for mode in (0, 3, -1):
        with pytest.raises(ValueError, match="1 or 2"):
            simulated.setDepthMode(mode)
    nan, inf = float("nan"), float("inf")
    for limits in ((1, 0.5), (1, 1), (-0.1, 1), (nan, 1), (0.1, nan), (0.1, inf), (-inf, 1)):
        with pytest.raises(ValueError, match="depth limits"):
            simulated.setDepthLimits(*limits)
    assert simulated.depthMode() == 2
    simulated.setDepthLimits(0, 2.5)
    assert (simulated.nearLimit(), simulated.farLimit()) == (0, 2.5)
    for degrees in (0, 180, nan):
        with pytest.raises(ValueError):
            simulated.setHorizontalField(degrees)
    with pytest.raises(ValueError):
        simulated.setStream(5, 30, 15)
    with pytest.raises(ValueError):
        simulated.setStream(1, 30, 256)


def test_the_version_is_told():
    assert [part.isdigit() for part in sc.__version__.split(".")] == [True] * 3
