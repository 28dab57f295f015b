# SPDX-License-Identifier: Apache-2.0
"""Wide depth from Python: arrays, ranges against the simulated truth, errors, threads."""

import concurrent.futures

import numpy as np
import pytest

import stereo_camera as sc

EYE = (464, 400)


@pytest.fixture(scope="module")
def pair():
    """A simulated camera's calibration, kept by a camera that is never started, and the eyes of one frame."""
    calibrated = sc.SimulatedCamera(frameSize=(928, 400), moving=False)
    with sc.SimulatedCamera(frameSize=(928, 400), moving=False, rate=5) as camera:
        camera.startCapture()
        frame = camera.getStereoFrame(timeout=120)
    return calibrated, frame


def engine(pair, **options):
    return sc.WideDepth(pair[0], EYE, size=(232, 200), **options)


def test_ranges_are_the_clouds_and_the_rays(pair):
    wide = engine(pair)
    result = wide.compute(pair[1].left, pair[1].right)
    assert result.range.shape == (200, 232) and result.range.dtype == np.float32
    assert result.state.dtype == np.uint8 and result.view.shape == (200, 232, 3)
    measured = result.state == sc.WideDepth.MEASURED
    assert measured.mean() > 0.5
    assert np.array_equal(measured, result.range > 0) and np.array_equal(measured, result.confidence > 0)
    cloud = wide.organizedCloud(result)
    assert np.array_equal(np.isfinite(cloud).all(axis=2), measured)
    np.testing.assert_allclose(cloud[measured], (wide.rays() * result.range[..., None])[measured], rtol=1e-5)
    points = wide.points(result)
    assert len(points.points) == measured.sum()
    np.testing.assert_array_equal(points.points, cloud[measured])
    np.testing.assert_array_equal(points.colors, result.view[measured])
    np.testing.assert_array_equal(points.confidence, result.confidence[measured])
    assert len(wide.points(result, 255).points) <= len(points.points)


def test_the_room_is_as_large_as_it_is(pair):
    """The axis meets the same thing as the middle of the perspective view, whose depth is known."""
    wide = engine(pair)
    result = wide.compute(pair[1].left, pair[1].right)
    truth = pair[0].truth().distance
    expected = np.median(truth[truth.shape[0] // 2 - 5 : truth.shape[0] // 2 + 5, truth.shape[1] // 2 - 5 : truth.shape[1] // 2 + 5])
    middle = result.range[97:103, 113:119]
    assert np.median(middle[middle > 0]) == pytest.approx(expected, rel=0.05)


def test_a_camera_that_was_started_is_refused(pair):
    """Its start scaled the calibration, so all ranges would be wrong."""
    with sc.SimulatedCamera(frameSize=(928, 400), moving=False) as camera:
        camera.startCapture()
        with pytest.raises(ValueError, match="was started"):
            engine((camera,))
    with pytest.raises(ValueError, match="was started"):
        engine((camera,))


def test_results_outlive_the_next(pair):
    wide = engine(pair)
    first = wide.compute(pair[1].left, pair[1].right)
    kept = first.range.copy()
    wide.compute(np.zeros_like(pair[1].left), np.zeros_like(pair[1].right))
    np.testing.assert_array_equal(first.range, kept)
    assert not first.range.flags.owndata  # no copy was made


def test_threads_take_turns(pair):
    wide = engine(pair, selfCalibrate=False)
    expected = wide.compute(pair[1].left, pair[1].right).range
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        for result in pool.map(lambda _: wide.compute(pair[1].left, pair[1].right), range(8)):
            np.testing.assert_array_equal(result.range, expected)


def test_what_cannot_be_is_refused(pair, tmp_path):
    with pytest.raises(sc.Error, match="none.yml"):
        sc.WideDepth(tmp_path / "none.yml", EYE)
    with pytest.raises(sc.Error):
        engine(pair, horizontalField=181.0)
    with pytest.raises(sc.Error):
        engine(pair, nearest=2.0, farthest=1.0)
    wide = engine(pair)
    with pytest.raises(sc.Error):
        wide.compute(pair[1].left[:100].copy(), pair[1].right)
    with pytest.raises(TypeError):
        wide.compute(pair[1].left.astype(float), pair[1].right)
    with pytest.raises((TypeError, ValueError)):
        wide.points(pair[1])


def test_points_are_written(pair, tmp_path):
    wide = engine(pair)
    points = wide.points(wide.compute(pair[1].left, pair[1].right))
    sc.writePly(tmp_path / "cloud.ply", points)
    header, body = (tmp_path / "cloud.ply").read_bytes().split(b"end_header\n", 1)
    assert f"element vertex {len(points.points)}".encode() in header
    vertex = np.dtype([("xyz", "<f4", 3), ("rgb", "u1", 3), ("confidence", "u1")])
    read = np.frombuffer(body, vertex)
    np.testing.assert_array_equal(read["xyz"], points.points)
    np.testing.assert_array_equal(read["rgb"], points.colors[:, ::-1])
    with pytest.raises(sc.Error):
        sc.writePly(tmp_path / "no" / "cloud.ply", points)
