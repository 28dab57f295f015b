# SPDX-License-Identifier: Apache-2.0
"""The members that derived classes see."""

import pathlib
import re

import numpy as np
import pytest
from conftest import Pictures, camera_on, side_by_side
from test_threads import Thread

import stereo_camera as sc

# Not for Python: mutexes and conditions are taken inside, the writer is the workers' own, the rest is unused.
LEFT_OUT = {"m_frameMutex", "m_disparityMutex", "m_frameCond", "m_disparityCond", "m_videoWriter", "m_reservedMats"}


def test_the_members_are_those_of_the_header():
    header = (pathlib.Path(__file__).parents[3] / "include" / "StereoCamera.hpp").read_text()
    protected = header[header.index("\nprotected:") : header.index("\nprivate:")]
    declared = set(re.findall(r"^  [\w:<>*() ]+[ *](m_\w+)", protected, re.M))
    assert len(declared) == 49
    assert declared - LEFT_OUT == {name for name in dir(sc.StereoCamera) if name.startswith("m_")}


NUMBERS = {
    "m_fisheyeRadius": 11, "m_algorithm": 1, "m_logLevel": 3, "m_deviceNode": 4, "m_posNumber": 5, "m_serialNumber": 6,
    "m_threshold": 70, "m_frameRate": 12.5, "m_ipLastSegment": 16, "m_useShareMemory": True, "m_useTransmit": True,
    "m_isOpened": True, "m_isComputing": True, "m_maxDepth": 2.5, "m_minDepth": 0.25, "m_transmode": 2,
    "m_transrate": 15.5, "m_hFov": 100.5, "m_defaultHFov": 80.0, "m_fisheyeFov": 200.0, "m_lonLatFov": 170.0,
    "m_depthmode": 2, "m_rawFrameSize": (640, 480), "m_rectFrameSize": (64, 32),
}  # fmt: skip


def test_numbers_are_kept_each_in_its_own_place():
    camera = sc.StereoCamera(sc.NO_DEVICE)
    assert (camera.m_maxDepth, camera.m_threshold, camera.m_depthmode, camera.m_transmode) == (1.0, 120, 1, -1)
    for name, value in NUMBERS.items():
        assert getattr(camera, name) != value
        setattr(camera, name, value)
    assert {name: getattr(camera, name) for name in NUMBERS} == NUMBERS
    assert camera.getPosNumber() == 5 and camera.getRawFrameSize() == (640, 480) and camera.isOpened()
    with pytest.raises(TypeError):
        camera.m_threshold = "wide"
    camera.m_isOpened = camera.m_isComputing = False


def test_matrices_are_set_whole_and_not_under_a_worker(simulated):
    turned = simulated.m_leftRotation + 0
    turned[0, 0] = 0.5
    simulated.m_leftRotation = turned
    turned[0, 0] = 7
    assert simulated.m_leftRotation[0, 0] == 0.5 and simulated.getCalibParams(False)[3][0, 0] == 0.5
    with pytest.raises(ValueError, match=r"m_rightIntrinsic must have the shape \(3, 3\)"):
        simulated.m_rightIntrinsic = np.eye(2)
    assert simulated.m_rectifyMaps is None and simulated.m_rectCameraMatrix.shape == (0, 0)
    simulated.startCapture()
    with pytest.raises(RuntimeError, match="m_leftXi is read by the workers"):
        simulated.m_leftXi = np.ones((1, 1))
    assert simulated.m_rectCameraMatrix[0, 0] == pytest.approx(116)
    for maps in (simulated.m_rectifyMaps, simulated.m_lonLatMaps):
        assert [[m.shape for m in eye] for eye in maps] == [[(200, 232)] * 2] * 2
    assert not np.array_equal(simulated.m_rectifyMaps[0][0], simulated.m_rectifyMaps[1][0])


def test_latest_frames_are_copies(simulated):
    assert simulated.m_rawFrame is None and simulated.m_disparityFrame is None
    simulated.startCapture()
    simulated.startStereoCompute()
    cloud = simulated.getPointCloud()
    raw, disparity = simulated.m_rawFrame, simulated.m_disparityFrame
    assert cloud is not None and raw.timestamp >= disparity.timestamp > 0
    assert raw.first.shape == (400, 464, 3) and disparity.second.dtype == np.float32
    expected = raw.first.copy()
    raw.first[:] = 0
    assert np.array_equal(simulated.m_rawFrame.first, expected)


def test_frames_can_be_published_by_hand():
    class Quiet(Pictures):
        def read(self):
            super().read()

    camera = camera_on(Quiet())
    camera.startCapture()
    eyes = side_by_side(1)[:, :64].copy(), side_by_side(2)[:, :64].copy()
    reader = Thread(camera.getStereoFrame)
    stamp = 1
    while reader.is_alive():  # a frame that comes before the reader waits is not its next one
        camera.m_rawFrame = (*eyes, stamp)
        stamp += 1
        reader.join(0.01)
        assert stamp < 10000
    frame = reader.outcome()
    assert np.array_equal(frame.left, eyes[0]) and np.array_equal(frame.right, eyes[1]) and 0 < frame.timestamp < stamp
    with pytest.raises(TypeError, match="the left eye must be an array of uint8"):
        camera.m_rawFrame = (None, eyes[1], 1)
    disparity = np.full((8, 16), 4, np.float32)
    camera.m_disparityFrame = sc.TimeFrame(side_by_side()[:8, :16].copy(), disparity, 9)
    assert np.array_equal(camera.latestDisparity().second, disparity) and camera.m_disparityFrame.timestamp == 9
    camera.stopCapture()


def test_the_log_is_there_as_long_as_somebody_has_it(capfd):
    camera = sc.StereoCamera(sc.NO_DEVICE)
    log = camera.m_log
    assert camera.m_logName == "StereoCamera"
    del camera
    log.runTimeInfo("hundred %s\n")
    log.runTimeError("oh\n")
    told = capfd.readouterr()
    assert "[StereoCamera] hundred %s\n" in told.out and "[StereoCamera] oh\n" in told.err


def test_settings_that_cannot_be_loaded_leave_no_log(tmp_path, capfd):
    camera = sc.StereoCamera(tmp_path / "missing.yml")
    assert not camera.isOpened() and camera.m_log is None
    assert "missing.yml" in capfd.readouterr().err
