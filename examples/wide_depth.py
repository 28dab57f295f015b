#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Draws range over the whole field with a scale in meters, and says what is nearest ahead.

    examples/wide_depth.py --simulate --output wide.png
    examples/wide_depth.py --replay recording --calibration calibration.yml

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
    from matplotlib.colors import LogNorm

    import stereo_camera as sc
except ImportError as missing:
    sys.exit(f"wide_depth.py: {missing}; it needs python3-matplotlib and the module stereo_camera (docs/python.md)")

PATIENCE = 60  # seconds that a read may wait
AHEAD = 20  # degrees to each side that count as ahead


def measure(options):
    """The engine and what it measured in one frame."""
    if options.replay:
        camera = sc.ReplayCamera(options.replay)
        calibration = options.calibration
    else:
        camera = sc.SimulatedCamera(rate=5)
        calibration = camera  # it brings its own
    width, height = camera.getRawFrameSize()
    with camera:
        wide = sc.WideDepth(calibration, (width // 2, height))
        camera.startCapture()
        frame = camera.getStereoFrame(timeout=PATIENCE)
    if frame is None:
        sys.exit("the camera delivered no frame")
    return wide, wide.compute(frame.left, frame.right)


def nearest_ahead(wide, image):
    """Meters to the nearest thing ahead, a few stray pixels excepted; NaN if nothing was measured."""
    ahead = (wide.rays()[:, :, 2] > np.cos(np.radians(AHEAD))) & (image.range > 0)
    return np.percentile(image.range[ahead], 1) if ahead.any() else np.nan


def draw(image, path):
    figure, (eye, picture) = plt.subplots(1, 2, figsize=(12, 4.8), constrained_layout=True)
    eye.imshow(image.view[:, :, ::-1])
    eye.set_title("left eye")
    measured = np.ma.masked_equal(image.range, 0)
    shown = picture.imshow(measured, cmap="turbo", norm=LogNorm(0.15, 10))
    figure.colorbar(shown, ax=picture, label="range, m", ticks=[0.2, 0.5, 1, 2, 5, 10], format="%g")
    picture.set_title("range; white: not measured")
    for axes in (eye, picture):
        axes.axis("off")
    figure.savefig(path, dpi=80)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    source = parser.add_mutually_exclusive_group()
    source.add_argument("--simulate", action="store_true", help="simulated camera (the default)")
    source.add_argument("--replay", metavar="PATH", help="image, folder of images, video or recording")
    parser.add_argument("--calibration", metavar="FILE", help="calibration file of the recording")
    parser.add_argument("--output", default="wide.png", help="the picture")
    options = parser.parse_args()
    if options.replay and not options.calibration:
        parser.error("--replay needs --calibration")
    try:
        wide, image = measure(options)
    except (RuntimeError, TimeoutError, ValueError) as error:
        sys.exit(str(error))
    draw(image, options.output)
    print(f"nearest ahead: {nearest_ahead(wide, image):.2f} m; {options.output}")


if __name__ == "__main__":
    main()
