# SPDX-License-Identifier: Apache-2.0
"""What Python gets is what the C++ program writes, and what the formulas say."""

import os
import struct
import subprocess
import zlib

import numpy as np
import pytest
from conftest import EYE_RADIUS, RAW, Pictures, camera_on, masked, side_by_side

import stereo_camera as sc


def read_png(path):
    """Blue, green, red of an 8-bit RGB file."""
    data = path.read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    packed, position = b"", 8
    while position < len(data):
        length, kind = struct.unpack_from(">I4s", data, position)
        body = data[position + 8 : position + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlaced = struct.unpack(">IIBBBBB", body)
            assert (depth, colour, interlaced) == (8, 2, 0)
        elif kind == b"IDAT":
            packed += body
        position += 12 + length
    lines = np.frombuffer(zlib.decompress(packed), np.uint8).reshape(height, 1 + 3 * width)
    image = np.zeros((height, width, 3), np.uint8)
    above = np.zeros((width, 3), int)
    for row, line in enumerate(lines):
        coded = line[1:].reshape(width, 3).astype(int)
        if line[0] == 0:
            current = coded
        elif line[0] == 1:
            current = np.cumsum(coded, axis=0) & 255
        elif line[0] == 2:
            current = (coded + above) & 255
        else:
            current = np.zeros_like(coded)
            left = corner = np.zeros(3, int)
            for column in range(width):
                up = above[column]
                if line[0] == 3:
                    guess = (left + up) // 2
                else:
                    near = left + up - corner
                    d = [abs(near - left), abs(near - up), abs(near - corner)]
                    guess = np.where((d[0] <= d[1]) & (d[0] <= d[2]), left, np.where(d[1] <= d[2], up, corner))
                left = current[column] = (coded[column] + guess) & 255
                corner = up
        image[row] = current
        above = current
    return image[:, :, ::-1]


def read_ply(path):
    """Structured array of the vertices of a binary file."""
    header, body = path.read_bytes().split(b"end_header\n", 1)
    kinds = {b"float": "<f4", b"uchar": "u1"}
    words = [line.split() for line in header.splitlines()]
    fields = [(line[2].decode(), kinds[line[1]]) for line in words if line[0] == b"property"]
    return np.frombuffer(body, np.dtype(fields))


@pytest.fixture(scope="module")
def snapshot(tmp_path_factory):
    folder = tmp_path_factory.mktemp("snapshot")
    command = [os.environ["STEREO_CAMERA_PROGRAM"], "snapshot", "--simulate", "--still", "--rate", "0", "--depth-mode"]
    command += ["2", "--size", "928x400", "--rectified", "232x200", "--patience", "120", "-o", str(folder)]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return folder


def test_images_are_those_that_the_program_writes(simulated, snapshot):
    simulated.startCapture()
    left, right, stamp = simulated.getStereoFrame()
    assert stamp > 1_500_000_000_000_000  # microseconds since 1970
    rectified = simulated.getRectStereoFrame()
    simulated.setDepthMode(1)
    angular = simulated.getRectStereoFrame(view=True)
    for image, name in [
        (simulated.getRawFrame().frame, "raw"),
        (left, "left"),
        (right, "right"),
        (rectified.left, "perspective-left"),
        (rectified.right, "perspective-right"),
        (angular.left, "lonlat-left"),
        (angular.right, "lonlat-right"),
        (angular.view, "perspective-left"),
    ]:
        expected = read_png(snapshot / (name + ".png"))
        assert image.dtype == np.uint8 and image.shape == expected.shape
        assert np.array_equal(image, expected), name
        assert image.any()


def test_depth_and_clouds_are_those_that_the_program_writes(simulated, snapshot):
    simulated.startCapture()
    simulated.startStereoCompute()
    points = simulated.getPointCloud().points
    colored = simulated.getPointCloud(colored=True)
    painted = simulated.getDepthFrame()
    assert np.array_equal(painted.depth, read_png(snapshot / "depth-colour.png"))
    plain = read_ply(snapshot / "cloud.ply")
    assert points.dtype == np.float32 and len(points) > 1000
    assert np.array_equal(points, np.stack([plain[axis] for axis in "xyz"], axis=1))
    vertices = read_ply(snapshot / "cloud-coloured.ply")
    assert colored.points.dtype == np.float32 and colored.colors.dtype == np.uint8
    assert np.array_equal(colored.points, np.stack([vertices[axis] for axis in "xyz"], axis=1))
    assert np.array_equal(colored.colors, np.stack([vertices[c] for c in ("blue", "green", "red")], axis=1))


def test_raw_eyes_are_the_masked_halves_of_the_frame():
    with camera_on(Pictures()) as camera:
        assert camera.fisheyeRadius() == EYE_RADIUS
        camera.startCapture()
        left, right, _ = camera.getStereoFrame()
        joined = camera.getRawFrame().frame
    halves = np.split(side_by_side(), 2, axis=1)
    assert np.array_equal(left, masked(halves[0]))
    assert np.array_equal(right, masked(halves[1]))
    assert np.array_equal(joined, np.concatenate([left, right], axis=1))


def disparities():
    random = np.random.default_rng(5)
    d = random.uniform(-1, 33, (40, 232)).astype(np.float32)
    d[0, :4] = [0, 0.05, -1, 5]
    return d


def test_metric_depth_is_the_formula(simulated):
    simulated.setDepthLimits(0.05, 2.0)
    simulated.startCapture()
    d = disparities()
    b = np.float32(np.linalg.norm(simulated.m_translation) / 1000)
    f = simulated.getCalibParams(False)[5][0, 0]
    assert f == pytest.approx(232 / 2 / np.tan(np.pi / 4))
    with np.errstate(divide="ignore"):
        z = (f * np.float64(b) / d.astype(np.float64)).astype(np.float32)
    expected = np.where(d > np.float32(0.05), np.where((z >= np.float32(0.05)) & (z <= 2), z, 0), -1).astype(np.float32)
    assert np.array_equal(simulated.getDepthFrame(d), expected)

    simulated.setDepthMode(1)
    W, o = 232, (180 - simulated.lonLatField()) / 360
    column = np.arange(232)
    with np.errstate(divide="ignore", invalid="ignore"):
        z = b * np.sin(np.pi * ((column - d.astype(float)) / W + o)) / np.sin(np.pi * d.astype(float) / W)
    angular = simulated.getDepthFrame(d)
    inside = (d > 0.05) & (z > 0.051) & (z < 1.99)
    assert inside.sum() > 1000
    assert np.allclose(angular[inside], z[inside], rtol=2e-6, atol=1e-6)
    assert (angular[d <= np.float32(0.05)] == -1).all()
    assert (angular[(d > 0.051) & (z > 2.01)] == 0).all()


def test_rectified_pixels_come_from_where_the_maps_say(simulated):
    simulated.startCapture()
    eyes = simulated.getStereoFrame()
    rectified = simulated.getRectStereoFrame()
    for eye, image, (columns, rows) in zip(eyes, rectified, simulated.m_rectifyMaps):
        x0, y0 = np.floor(columns).astype(int), np.floor(rows).astype(int)
        inside = (x0 >= 0) & (y0 >= 0) & (x0 < eye.shape[1] - 1) & (y0 < eye.shape[0] - 1)
        x0, y0 = x0[inside], y0[inside]
        fx, fy = (columns[inside] - x0)[:, None], (rows[inside] - y0)[:, None]
        at = lambda y, x: eye[y, x].astype(float)
        mixed = (1 - fy) * ((1 - fx) * at(y0, x0) + fx * at(y0, x0 + 1))
        mixed += fy * ((1 - fx) * at(y0 + 1, x0) + fx * at(y0 + 1, x0 + 1))
        # The positions are rounded to 1/32 of a pixel: next to an edge, that shows.
        difference = np.abs(image[inside] - mixed)
        assert inside.mean() > 0.9 and difference.mean() < 0.6 and difference.max() < 12


def test_maps_follow_the_omnidirectional_model():
    K = np.array([[300.0, 0.2, 232.0], [0, 301.0, 200.0], [0, 0, 1]])
    D, xi, angle = np.array([[-0.06, 0.01, 3e-4, -2e-4]]), 1.5, 0.1
    R = np.array([[np.cos(angle), 0, np.sin(angle)], [0, 1, 0], [-np.sin(angle), 0, np.cos(angle)]])
    P = np.array([[50.0, 0, 31.5], [0, 50, 23.5], [0, 0, 1]])
    columns, rows = sc.initRectifyMap(K, D, R, P, xi, 0.0, (64, 48), 2)
    y, x = np.mgrid[0:48, 0:64].astype(float)
    rays = np.stack([(x - 31.5) / 50, (y - 23.5) / 50, np.ones_like(x)], axis=2) @ R  # rows times R: R^-1 of each
    X, Y, Z = np.moveaxis(rays / np.linalg.norm(rays, axis=2, keepdims=True), 2, 0)
    xu, yu = X / (Z + xi), Y / (Z + xi)
    r2 = xu**2 + yu**2
    g = 1 + D[0, 0] * r2 + D[0, 1] * r2**2
    xd = g * xu + 2 * D[0, 2] * xu * yu + D[0, 3] * (r2 + 2 * xu**2)
    yd = g * yu + D[0, 2] * (r2 + 2 * yu**2) + 2 * D[0, 3] * xu * yu
    assert columns.dtype == rows.dtype == np.float32 and columns.shape == rows.shape == (48, 64)
    assert np.allclose(columns, 300 * xd + 0.2 * yd + 232, atol=1e-4)
    assert np.allclose(rows, 301 * yd + 200, atol=1e-4)


def test_disparity_agrees_with_the_true_scene(simulated):
    simulated.startCapture()
    simulated.startStereoCompute()
    assert simulated.getPointCloud() is not None
    found = simulated.m_disparityFrame.second
    truth = simulated.truth("perspective")
    assert found.shape == truth.disparity.shape
    judged = (found > 1) & (truth.disparity < 31) & (truth.seen == 255) & (truth.occluded == 0)
    assert judged.sum() > 5000
    assert np.median(np.abs(found - truth.disparity)[judged]) < 0.35


def test_free_functions():
    blue, green, red = sc.getclolor(0, 1, 0)
    assert blue >= 254 and (green, red) == (0, 0)
    assert (sc.getBlueSegVal(0, 1, 0), sc.getGreenSegVal(0, 1, 0), sc.getRedSegVal(0, 1, 0)) == (255, 0, 0)
    m = np.arange(9.0).reshape(3, 3)
    assert sc.MatRowMul(m, 1, 10, 100, 1) == m[1] @ [1, 10, 100]
    images = [side_by_side(n)[:, : RAW[0] // 2].copy() for n in (1, 2)]
    expected = [masked(image, 150) for image in images]
    assert sc.convertRawFisheyeImage(150, *images) == 0
    assert np.array_equal(images[0], expected[0]) and np.array_equal(images[1], expected[1])
    with pytest.raises(sc.Error, match="(?i)row|matrix|index|range"):
        sc.MatRowMul(m, 1, 1, 1, 3)
