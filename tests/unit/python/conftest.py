# SPDX-License-Identifier: Apache-2.0
"""What the tests of the Python module share. No camera, display or network is needed."""

import sys
import threading
import time

import numpy as np
import pytest

import stereo_camera as sc

RAW = (928, 400)  # width, height of the side-by-side frame
EYE_RADIUS = RAW[0] // 4


def await_that(condition, seconds=120):
    """Waits until the condition holds; a test that would wait for ever fails instead."""
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "what was waited for did not come"
        time.sleep(0.002)


def side_by_side(number=0):
    """A frame with structure, another one for every number."""
    rows, columns = np.mgrid[0 : RAW[1], 0 : RAW[0]]
    return np.stack([(rows * k + columns * (k + 2) + 31 * number) % 251 for k in (1, 2, 3)], axis=2).astype(np.uint8)


def masked(eye, radius=EYE_RADIUS):
    """The eye with everything black outside the image circle, row by row as documented."""
    result = np.zeros_like(eye)
    cy, cx = eye.shape[0] // 2, eye.shape[1] // 2
    for row in range(eye.shape[0]):
        square = radius * radius - (cy - row) ** 2
        if square >= 0:
            half = int(np.sqrt(square))
            first, last = max(cx - half, 0), min(cx + half, eye.shape[1] - 1)
            result[row, first : last + 1] = eye[row, first : last + 1]
    return result


class Pictures(sc.VideoCapture):
    """Shows the same picture over and over, until it is released."""

    def __init__(self, picture=None):
        super().__init__()
        self.picture = side_by_side() if picture is None else picture
        self.reads = 0
        self.settings = []
        self.gone = threading.Event()

    def read(self):
        self.reads += 1
        return None if self.gone.wait(0.002) else self.picture

    def set(self, propId, value):
        self.settings.append((propId, value))
        return True

    def release(self):
        super().release()
        self.gone.set()


def camera_on(source, kind=sc.VirtualCamera):
    camera = kind(source)
    assert camera.setRawFrameSize(RAW)
    assert camera.setRectFrameSize((64, 48))
    return camera


def calibrate(camera):
    """Gives the camera a calibration, which the disparity worker wants; any will do."""
    matrix = np.array([[500.0, 0, 464], [0, 500, 400], [0, 0, 1]])
    for is_right in (False, True):
        camera.setCalibParams([matrix, np.zeros((1, 4)), np.ones((1, 1)), np.eye(3), np.array([[-60.0], [0], [0]])], is_right)
    return camera


@pytest.fixture
def simulated():
    """A small simulated camera whose scene stands still, as fast as possible; not started."""
    with sc.SimulatedCamera(frameSize=RAW, rate=0, moving=False, rectFrameSize=(232, 200)) as camera:
        camera.setDepthMode(2)
        yield camera


@pytest.fixture
def unraisable(monkeypatch):
    """Exceptions that nobody caught: what `sys.unraisablehook` was told, as (type, text)."""
    seen = []
    monkeypatch.setattr(sys, "unraisablehook", lambda told: seen.append((told.exc_type, str(told.exc_value))))
    return seen
