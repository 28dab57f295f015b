#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Draws the left eye, its depth and the point cloud from above, into a PNG.

    examples/depth_plot.py --simulate --output depth.png
    examples/depth_plot.py --replay recording.mp4 --calibration calibration.yml

Needs Matplotlib and NumPy (Debian: python3-matplotlib) and the module stereo_camera (Debian: python3-stereo-camera, or
PYTHONPATH=build/release/python in a source tree). No camera.
"""

import argparse
import sys

try:
    import matplotlib

    matplotlib.use("Agg")  # files only, no display

    import matplotlib.pyplot as plt
    import numpy as np

    import stereo_camera as sc
except ImportError as missing:
    sys.exit(f"depth_plot.py: {missing}; it needs python3-matplotlib and the module stereo_camera (docs/python.md)")

PATIENCE = 60  # seconds that a read may wait


def open_camera(options):
    size = (400, 400)
    if options.replay:
        camera = sc.ReplayCamera(options.replay, rectFrameSize=size)
        if not camera.loadCalibParams(options.calibration):
            sys.exit(f"cannot use the calibration '{options.calibration}'")
    else:
        camera = sc.SimulatedCamera(rate=5, rectFrameSize=size)
    camera.setDepthMode(2)
    camera.setDepthLimits(0.1, 3.0)
    return camera


def read(camera):
    """Left eye, colored depth and a cloud (points in meters, colors)."""
    camera.startCapture()
    camera.startStereoCompute()
    camera.getPointCloud(timeout=PATIENCE)  # waits for a disparity, which colored depth does not
    depth = camera.getDepthFrame(timeout=PATIENCE)
    frame = camera.getStereoFrame(timeout=PATIENCE)
    if depth is None or frame is None:
        sys.exit("the camera delivered no depth")
    return frame.left, depth.depth, *cloud_of(camera)


def cloud_of(camera):
    """The cloud of the latest disparity, each pixel at its place in the scene.

    `getPointCloud` is faster and thinner, but exchanges rows and columns in depth mode 2 (docs/frames.md).
    """
    view, disparity, _ = camera.m_disparityFrame
    depth = camera.getDepthFrame(disparity)  # meters
    f, cx, cy = camera.m_rectCameraMatrix[[0, 0, 1], [0, 2, 2]]
    rows, columns = np.nonzero(depth > 0)
    z = depth[rows, columns]
    return np.stack([(columns - cx) / f * z, (rows - cy) / f * z, z], axis=1), view[rows, columns]


def draw(left, depth, points, colors, path):
    figure, (eye, picture, top) = plt.subplots(1, 3, figsize=(15, 4.6), constrained_layout=True)
    eye.imshow(left[:, :, ::-1])
    eye.set_title("left eye")
    picture.imshow(depth[::-1, ::-1, ::-1])  # it is rotated by 180 degrees
    picture.set_title("depth, near blue, far red")
    for axes in (eye, picture):
        axes.axis("off")
    top.scatter(points[:, 0], points[:, 2], c=colors[:, ::-1] / 255, s=1)
    top.plot(0, 0, "k^")
    top.set(title="cloud from above", xlabel="x to the right, m", ylabel="z forward, m", aspect="equal")
    figure.savefig(path, dpi=80)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    source = parser.add_mutually_exclusive_group()
    source.add_argument("--simulate", action="store_true", help="simulated camera (the default)")
    source.add_argument("--replay", metavar="PATH", help="image, folder of images or video of side-by-side frames")
    parser.add_argument("--calibration", metavar="FILE", help="calibration file of the recording")
    parser.add_argument("--output", default="depth.png", help="the picture")
    options = parser.parse_args()
    if options.replay and not options.calibration:
        parser.error("--replay needs --calibration")
    try:
        with open_camera(options) as camera:
            products = read(camera)
    except (RuntimeError, TimeoutError, ValueError) as error:
        sys.exit(str(error))
    draw(*products, options.output)
    print(options.output)


if __name__ == "__main__":
    main()
