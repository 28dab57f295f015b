# SPDX-License-Identifier: Apache-2.0
"""Classes derived in Python: the C++ code calls them, and `super()` reaches it."""

import re
import threading

import numpy as np
import pytest
from conftest import RAW, Pictures, await_that, camera_on, side_by_side

import stereo_camera as sc

SMALL = dict(frameSize=RAW, rate=0, moving=False, rectFrameSize=(232, 200))


class Noting(sc.SimulatedCamera):
    """Notes who calls what."""

    def __init__(self, **options):
        super().__init__(**options)
        self.calls = []
        self.lock = threading.Lock()

    def note(self, name):
        with self.lock:
            self.calls.append((name, threading.current_thread() is threading.main_thread()))

    def getPosNumber(self):
        self.note("getPosNumber")
        return super().getPosNumber()

    def getStereoFrame(self):
        self.note("getStereoFrame")
        return super().getStereoFrame()

    def getRectStereoFrame(self, view=False):
        self.note(f"getRectStereoFrame {view}")
        return super().getRectStereoFrame(view)

    def getDepthFrame(self, disparity=None, color=True):
        self.note("getDepthFrame" if disparity is None else "getDepthFrame disparity")
        return super().getDepthFrame(disparity, color)


def test_workers_and_reads_call_overrides():
    with Noting(**SMALL) as camera:
        camera.setDepthMode(2)
        camera.startCapture()
        camera.startStereoCompute()
        cloud = camera.getPointCloud(colored=True)
        assert len(cloud.points) > 1000
        # The disparity worker reads by the overrides, on its own thread; the cloud's metric depth on this one.
        assert ("getRectStereoFrame True", False) in camera.calls
        assert ("getStereoFrame", False) in camera.calls
        assert ("getDepthFrame disparity", True) in camera.calls
        del camera.calls[:]
        assert camera.getRectStereoFrame().left.shape == (200, 232, 3)
        own = [name for name, main in camera.calls if main]
        assert own == ["getRectStereoFrame False", "getStereoFrame"]


def test_an_override_is_the_source_of_what_is_made_of_it():
    class Grey(sc.SimulatedCamera):
        def getStereoFrame(self):
            frame = super().getStereoFrame()
            return frame and (np.full_like(frame.left, 40), np.full_like(frame.right, 90), 77)

    with Grey(**SMALL) as camera:
        camera.startCapture()
        left, right, view, stamp = camera.getRectStereoFrame(view=True)
        assert stamp == 77 and left.max() == 40 and view.max() == 40 and right.max() == 90


def test_metric_depth_of_an_override_becomes_the_cloud():
    class Flat(sc.SimulatedCamera):
        def getDepthFrame(self, disparity=None, color=True):
            if disparity is None:
                return super().getDepthFrame(color=color)
            assert disparity.dtype == np.float32
            return np.full_like(disparity, 0.5)

    with Flat(**SMALL) as camera:
        camera.setDepthMode(2)
        camera.startCapture()
        camera.startStereoCompute()
        points = camera.getPointCloud(colored=True).points
        assert len(points) > 1000 and (points[:, 2] == np.float32(0.5)).all()


def test_the_segments_key_comes_from_an_override():
    asked = threading.Event()

    class Placed(sc.VirtualCamera):
        def getPosNumber(self):
            asked.set()
            return 0x5C0B0

    with camera_on(Pictures(), Placed) as camera:
        camera.startCapture(useShareMemory=True)
        assert camera.getRawFrame() is not None
        assert asked.is_set()
        with open("/proc/sysvipc/shm") as table:
            keys = [int(line.split()[0]) for line in table.readlines()[1:]]
        assert 9000 + 0x5C0B0 in keys


def test_several_levels_and_super_from_anywhere():
    class Middle(sc.SimulatedCamera):
        def getStereoFrame(self):
            return (lambda: super(Middle, self).getStereoFrame())()

    class Top(Middle):
        def getStereoFrame(self):
            helper = super().getStereoFrame
            frame = [helper() for _ in range(1)][0]
            return frame and frame._replace(timestamp=5)

    with Top(**SMALL) as camera:
        camera.startCapture()
        assert camera.getRectStereoFrame(view=True).timestamp == 5


def test_an_exception_goes_to_the_caller_in_python(unraisable):
    class Failing(sc.SimulatedCamera):
        def getStereoFrame(self):
            raise KeyError("no eyes")

    with Failing(**SMALL) as camera:
        camera.startCapture()
        with pytest.raises(KeyError, match="no eyes"):
            camera.getRectStereoFrame()
        assert camera.getRawFrame() is not None
    assert unraisable == []


@pytest.mark.parametrize(
    "result, kind, text",
    [
        (lambda: 1 / 0, ZeroDivisionError, "division"),
        (lambda: (1, 2), ValueError, "getStereoFrame must return None or 3 values, not 2"),
        (lambda: 7, TypeError, "None or 3 values, not int"),
        (lambda: (side_by_side(), side_by_side(), "now"), TypeError, "integer number of microseconds, not str"),
        (lambda: (side_by_side().astype(float), side_by_side(), 1), TypeError, "left image.*uint8"),
        (lambda: (side_by_side(), side_by_side()[0], 1), ValueError, "right image.*shape"),
    ],
)
def test_failures_on_a_worker_are_reported_and_it_goes_on(unraisable, result, kind, text):
    class Failing(sc.SimulatedCamera):
        fail = True

        def getStereoFrame(self):
            if self.fail and threading.current_thread() is not threading.main_thread():
                return result()
            return super().getStereoFrame()

    with Failing(**SMALL) as camera:
        camera.startCapture()
        camera.startStereoCompute()
        await_that(lambda: len(unraisable) >= 2)
        assert camera.getStereoFrame() is not None
        camera.fail = False
        assert camera.getPointCloud() is not None
    assert {told[0] for told in unraisable} == {kind}
    assert re.search(text, unraisable[0][1])


def test_none_of_an_override_is_no_frame():
    class Blind(sc.SimulatedCamera):
        def getStereoFrame(self):
            return None

    with Blind(**SMALL) as camera:
        camera.startCapture()
        assert camera.getRectStereoFrame() is None
        assert camera.getRectStereoFrame(view=True) is None


def test_a_base_that_is_not_initialised_is_told():
    class Forgetful(sc.StereoCamera):
        def __init__(self):
            pass

    with pytest.raises(TypeError, match="__init__"):
        Forgetful()


def test_a_worker_cannot_stop_itself(unraisable):
    class Eager(sc.SimulatedCamera):
        tried = False

        def getStereoFrame(self):
            if threading.current_thread() is not threading.main_thread() and not self.tried:
                self.tried = True
                self.stopCapture()
            return super().getStereoFrame()

    with Eager(**SMALL) as camera:
        camera.startCapture()
        camera.startStereoCompute()
        await_that(lambda: unraisable)
        assert camera.getStereoFrame() is not None  # it was not stopped
    assert unraisable[0][0] is RuntimeError and "another thread" in unraisable[0][1]
