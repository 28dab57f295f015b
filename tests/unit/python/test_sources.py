# SPDX-License-Identifier: Apache-2.0
"""Frame sources in Python: what they deliver, how they fail, how long they live."""

import gc
import threading
import time
import weakref

import numpy as np
import pytest
from conftest import RAW, Pictures, await_that, camera_on, masked, side_by_side

import stereo_camera as sc


def test_a_source_replaces_the_device():
    camera = sc.StereoCamera(sc.NO_DEVICE)
    assert not camera.isOpened() and camera.m_videoCapture is None
    source = Pictures()
    camera.setVideoCapture(source)
    assert camera.isOpened() and camera.m_videoCapture is source
    assert camera.setRawFrameSize(RAW) and camera.setRawFrameRate(50)
    assert source.settings == [(3, 928.0), (4, 400.0), (5, 50.0)]
    camera.startCapture()
    assert np.array_equal(camera.getStereoFrame().left, masked(side_by_side()[:, : RAW[0] // 2]))
    with pytest.raises(RuntimeError, match="before startCapture"):
        camera.setVideoCapture(Pictures())
    camera.stopCapture()
    assert camera.m_videoCapture is source


def test_the_size_is_what_the_source_delivers():
    with camera_on(Pictures(side_by_side()[:300, :700])) as camera:
        camera.startCapture()
        assert camera.getRawFrame().frame.shape == (300, 700, 3)
        assert camera.getRawFrameSize() == (700, 300)


def test_frames_of_any_layout_are_taken():
    picture = np.ascontiguousarray(side_by_side()[::-1])[::-1]
    assert not picture.flags.c_contiguous
    with camera_on(Pictures(picture)) as camera:
        camera.startCapture()
        assert np.array_equal(camera.getStereoFrame().right, masked(side_by_side()[:, RAW[0] // 2 :]))


def test_the_camera_keeps_its_source():
    source = Pictures()
    gone = weakref.ref(source)
    camera = camera_on(source)
    camera.startCapture()
    del source
    gc.collect()
    assert gone() is not None
    assert camera.getStereoFrame() is not None
    camera.stopCapture()
    del camera
    await_that(lambda: gone() is None)


def test_a_replaced_source_is_let_go():
    first, second = Pictures(), Pictures()
    camera = camera_on(first)
    gone = weakref.ref(first)
    camera.m_videoCapture = second
    del first
    assert gone() is None and camera.m_videoCapture is second


def test_exceptions_and_what_is_no_frame_are_reported(unraisable):
    class Bad(Pictures):
        def __init__(self):
            super().__init__()
            self.todo = [OSError("cable"), [1, 2], np.zeros((4, 4), np.uint8), np.zeros((4, 4, 3), np.uint16)]
            self.todo.append(np.zeros((0, 4, 3), np.uint8))

        def read(self):
            if not self.todo:
                return super().read()
            result = self.todo.pop(0)
            if isinstance(result, Exception):
                raise result
            return result

    with camera_on(Bad()) as camera:
        camera.startCapture()
        assert np.array_equal(camera.getStereoFrame().left, masked(side_by_side()[:, : RAW[0] // 2]))
    assert [kind for kind, _ in unraisable] == [OSError, TypeError, ValueError, TypeError, ValueError]
    assert unraisable[0][1] == "cable" and "uint8, not list" in unraisable[1][1]
    assert "(rows, columns, 3), not (4, 4)" in unraisable[2][1]


def test_read_has_to_be_written(unraisable):
    class Lazy(sc.VideoCapture):
        pass

    camera = camera_on(Lazy())
    camera.startCapture()
    await_that(lambda: len(unraisable) >= 10)
    camera.stopCapture()
    assert set(unraisable) == {(NotImplementedError, "Lazy has no read()")}


def test_exceptions_of_set_go_to_the_setter():
    class Stubborn(Pictures):
        def set(self, propId, value):
            raise PermissionError("fixed")

    camera = sc.VirtualCamera(Stubborn())
    with pytest.raises(PermissionError, match="fixed"):
        camera.setRawFrameSize(RAW)


def test_none_makes_no_frame_and_a_later_picture_does():
    class Late(Pictures):
        shows = False

        def read(self):
            picture = super().read()
            return picture if self.shows else None

    source = Late()
    with camera_on(source) as camera:
        camera.startCapture()
        await_that(lambda: source.reads > 20)
        assert camera.m_rawFrame is None
        source.shows = True
        assert camera.getRawFrame() is not None


def test_a_stop_releases_a_source_that_waits():
    class Stalled(Pictures):
        inside = False

        def read(self):
            self.inside = True
            self.gone.wait()
            return None

    source = Stalled()
    camera = camera_on(source)
    camera.startCapture()
    await_that(lambda: source.inside)
    camera.stopCapture()  # after its grace of two seconds
    assert source.gone.is_set() and not source.isOpened()


def test_a_dropped_camera_ends_a_source_that_waits():
    class Stalled(Pictures):
        inside = False

        def read(self):
            self.inside = True
            self.gone.wait()
            return None

    source = Stalled()
    camera = camera_on(source)
    camera.startCapture()
    await_that(lambda: source.inside)
    began = time.monotonic()
    del camera
    await_that(source.gone.is_set)
    assert time.monotonic() - began < 60


def test_the_last_reference_may_go_on_the_worker_itself():
    class Holder(Pictures):
        """Drops the camera that reads it, from inside the read."""

        camera = None
        dropped = threading.Event()

        def read(self):
            if self.camera is not None:
                self.camera = None
                self.dropped.set()
            return super().read()

    source = Holder()
    camera = camera_on(source)
    alive = weakref.ref(camera)
    camera.startCapture()
    source.camera, camera = camera, None
    assert source.dropped.wait(120)
    await_that(lambda: alive() is None and source.gone.is_set())
    gone = weakref.ref(source)
    del source
    await_that(lambda: gone() is None)
