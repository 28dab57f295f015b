# SPDX-License-Identifier: Apache-2.0
"""Recordings of the host program, replayed in Python."""

import os
import subprocess

import numpy
import pytest
import stereo_camera as sc


@pytest.fixture
def recording(tmp_path):
    folder = tmp_path / "recording"
    program = os.environ["STEREO_CAMERA_PROGRAM"]
    subprocess.run(
        [program, "record", "--simulate", "--still", "--size", "928x400", "--frames", "5", "--patience", "120"]
        + ["-o", str(folder)],
        check=True,
        stdin=subprocess.DEVNULL,
        timeout=300,
    )
    return folder


def stamps_of(folder):
    lines = (folder / "stamps.csv").read_text().splitlines()
    return [int(line.split(",")[1]) for line in lines[1:]]


@pytest.mark.parametrize("recorded_timing", [False, True])
def test_frames_come_with_their_recorded_stamps(recording, recorded_timing):
    stamps = stamps_of(recording)
    assert len(stamps) == 5
    camera = sc.ReplayCamera(recording, rate=100, recordedTiming=recorded_timing)
    assert camera.recordedStamp() is None
    with camera:
        camera.startCapture()
        for _ in range(3):
            left, right, _stamp = camera.getStereoFrame()
            assert left.shape == right.shape == (400, 464, 3)
            assert camera.recordedStamp() in stamps


def test_pictures_have_no_recorded_stamps(tmp_path, recording):
    camera = sc.ReplayCamera(recording / "frames.mkv", rate=0)
    with camera:
        camera.startCapture()
        assert camera.getStereoFrame() is not None
        assert camera.recordedStamp() is None


def test_depth_is_that_of_the_recorded_camera(recording):
    def depth_of(camera):
        with camera:
            camera.setDepthMode(2)
            camera.startCapture()
            camera.startStereoCompute()
            assert camera.getPointCloud() is not None
            return camera.getDepthFrame(camera.m_disparityFrame.second)

    replayed = sc.ReplayCamera(recording)
    assert replayed.loadConfig(str(recording / "settings.yml"))
    assert replayed.loadCalibParams(str(recording / "calibration.yml"))
    live = sc.SimulatedCamera(frameSize=(928, 400), moving=False)
    depth = depth_of(replayed)
    assert (depth > 0).sum() > 10000
    assert numpy.array_equal(depth, depth_of(live))
