# SPDX-License-Identifier: Apache-2.0
"""Who owns the pixels, and what is refused."""

import gc
import weakref

import numpy as np
import pytest
from conftest import Pictures, camera_on, side_by_side

import stereo_camera as sc


def test_arrays_outlive_the_camera_and_belong_to_the_caller():
    camera = sc.SimulatedCamera(frameSize=(928, 400), rate=0, moving=False, rectFrameSize=(232, 200))
    camera.setDepthMode(2)
    camera.startCapture()
    camera.startStereoCompute()
    frame = camera.getStereoFrame()
    points, colors, _ = camera.getPointCloud(colored=True)
    again = camera.getStereoFrame()
    kept = frame.left.copy(), points.copy(), colors.copy()
    again.left[:] = 0  # nobody else's pixels
    assert np.array_equal(camera.getStereoFrame().left, kept[0])
    del camera
    gc.collect()
    junk = [np.full(frame.left.shape, n, np.uint8) for n in range(20)]  # would take memory that was given back
    assert np.array_equal(frame.left, kept[0]) and np.array_equal(points, kept[1]) and np.array_equal(colors, kept[2])
    assert frame.left.flags.writeable and frame.left.flags.c_contiguous and len(junk) == 20


def test_results_are_not_copied(simulated):
    simulated.startCapture()
    left = simulated.getStereoFrame().left
    assert not left.flags.owndata and left.base is not None  # over the image's own memory
    cloud = sc.SimulatedCamera  # a class keeps no camera alive
    assert cloud is not None


def test_members_are_copies(simulated):
    simulated.startCapture()
    for read in (lambda: simulated.getCalibParams(False)[0], lambda: simulated.m_leftIntrinsic):
        matrix = read()
        before = matrix.copy()
        matrix[:] = 0
        assert np.array_equal(read(), before)


def test_inputs_may_be_laid_out_in_any_way(simulated):
    simulated.startCapture()
    whole = np.random.default_rng(1).uniform(0.1, 30, (48, 64)).astype(np.float32)
    expected = simulated.getDepthFrame(whole)
    padded = np.zeros((48, 128), np.float32)
    padded[:, ::2] = whole
    read_only = whole.copy()
    read_only.flags.writeable = False
    unaligned = np.frombuffer(b"\0" + whole.tobytes(), np.uint8)[1:].view(np.float32).reshape(whole.shape)
    for form in (padded[:, ::2], np.asfortranarray(whole), read_only, unaligned):
        assert np.array_equal(simulated.getDepthFrame(form), expected)
    assert np.array_equal(simulated.getDepthFrame(whole[::-1]), simulated.getDepthFrame(whole[::-1].copy()))


def test_an_input_is_kept_only_as_long_as_the_call(simulated):
    disparity = np.full((8, 8), 3, np.float32)
    gone = weakref.ref(disparity)
    depth = simulated.getDepthFrame(disparity)
    del disparity
    assert gone() is None and depth.shape == (8, 8)


K, D, XI, R, T = np.eye(3), np.zeros((1, 4)), np.ones((1, 1)), np.eye(3), np.zeros((3, 1))


@pytest.mark.parametrize(
    "call, kind, text",
    [
        (lambda c: c.getDepthFrame([[1.0]]), TypeError, "array of float32, not list"),
        (lambda c: c.getDepthFrame(np.ones((2, 2))), TypeError, "float32, not of float64"),
        (lambda c: c.getDepthFrame(np.ones((2, 2), ">f4")), TypeError, "float32"),
        (lambda c: c.getDepthFrame(np.ones(2, np.float32)), ValueError, r"\(rows, columns\), not \(2,\)"),
        (lambda c: c.getDepthFrame(np.ones((2, 2, 1), np.float32)), ValueError, r"not \(2, 2, 1\)"),
        (lambda c: c.setRectFrameSize(7), TypeError, r"\(width, height\), not int"),
        (lambda c: c.setRectFrameSize("12"), TypeError, "not str"),
        (lambda c: c.setRectFrameSize((1, 2, 3)), ValueError, "not 3 numbers"),
        (lambda c: c.setRectFrameSize((1.5, 2)), TypeError, "float"),
        (lambda c: c.setRectFrameSize((1 << 40, 2)), ValueError, "out of range"),
        (lambda c: c.setCalibParams(3, False), TypeError, "sequence of arrays, not int"),
        (lambda c: c.setCalibParams([K.astype("f4"), D, XI, R, T], False), TypeError, "intrinsic matrix.*float64"),
        (lambda c: c.setCalibParams([K[:1], D, XI, R, T], False), ValueError, r"intrinsic matrix.*\(3, 3\), not"),
        (lambda c: c.setCalibParams([K, D[:, :3], XI, R, T], False), ValueError, "distortion"),
        (lambda c: c.setCalibParams([K, D, XI, R[:, :2], T], False), ValueError, "rotation"),
        (lambda c: c.setCalibParams([K, D, XI, R, np.zeros(2)], False), ValueError, "translation"),
        (lambda c: c.setVideoCapture(object()), TypeError, "derived from stereo_camera.VideoCapture; this is object"),
        (lambda c: c.loadConfig(3), TypeError, "incompatible function arguments"),
        (lambda c: c.setLogLevel("x"), TypeError, "incompatible function arguments"),
        (lambda c: c.truth("sideways"), ValueError, "'perspective' or 'lonLat', not 'sideways'"),
        (lambda c: sc.VirtualCamera(None), TypeError, "this is NoneType"),
        (lambda c: sc.SimulatedCamera(frameSize=(64, 48)), ValueError, "1856x800"),
        (lambda c: sc.SimulatedCamera(faults="fly 3"), ValueError, "(?i)line 1"),
        (lambda c: sc.SimulatedCamera(conditions="fog"), ValueError, "'fog' is none of rich, hard"),
        (lambda c: sc.ReplayCamera("/does/not/exist"), RuntimeError, "/does/not/exist"),
        (lambda c: sc.convertRawFisheyeImage(3, side_by_side()[:, ::2], side_by_side()), ValueError, "C-contiguous"),
        (lambda c: sc.initRectifyMap(K, D, R, K[:2], 1, 0, (4, 4), 2), ValueError, r"P must have the shape \(3, 3\)"),
    ],
)
def test_what_does_not_suit_is_refused_with_a_reason(simulated, call, kind, text):
    with pytest.raises(kind, match=text):
        call(simulated)


def test_few_matrices_are_refused_by_the_camera(simulated, capfd):
    before = simulated.getCalibParams(True)
    assert not simulated.setCalibParams([K, D, XI, R], True)
    assert "Invalid params format!" in capfd.readouterr().err
    assert all(np.array_equal(a, b) for a, b in zip(before, simulated.getCalibParams(True)))


def test_openCvs_exceptions_carry_their_text():
    with camera_on(Pictures()) as camera:
        camera.startCapture()
        with pytest.raises(sc.Error, match="OpenCV.*"):  # no calibration, so no maps
            camera.getRectStereoFrame()
    assert issubclass(sc.Error, RuntimeError)


def test_calibration_goes_in_and_comes_out(simulated, tmp_path):
    matrices = simulated.getCalibParams(False)
    assert [m.shape for m in matrices[:5]] == [(3, 3), (1, 4), (1, 1), (3, 3), (3, 1)]
    assert matrices[5].size == 0 and all(m.dtype == np.float64 for m in matrices)
    other = sc.StereoCamera(sc.NO_DEVICE)
    assert other.setCalibParams(matrices, False)
    assert other.setCalibParams([m[0] if m.shape[0] == 1 else m for m in simulated.getCalibParams(True)], True)
    assert simulated.saveCalibParams(tmp_path / "calibration.yml")
    third = sc.StereoCamera(sc.NO_DEVICE)
    assert third.loadCalibParams(str(tmp_path / "calibration.yml"))
    for eye in (False, True):
        for a, b, c in list(zip(*(x.getCalibParams(eye) for x in (simulated, other, third))))[:5]:
            assert np.array_equal(a, b) and np.allclose(a, c, rtol=1e-14)
    assert not third.loadCalibParams(tmp_path / "missing.yml")
