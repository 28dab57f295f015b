#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Reads images of the left eye from the shared memory of a running camera and writes them as PPM files.

    examples/segment_reader.py KEY WIDTH HEIGHT COUNT PREFIX

KEY is 9000 + position of the camera, WIDTH x HEIGHT the size of one eye in pixels; next to `stereo-camera share`:

    examples/segment_reader.py 9000 928 800 5 left-

Needs NumPy (Debian: python3-numpy) and a camera that shares its left eye, such as `stereo-camera share --simulate`. Not
part of the library. Other programs may use `Segment`. examples/segment_reader.cpp explains each step.
"""

import ctypes
import errno
import os
import sys
import time

try:
    import numpy as np
except ImportError as missing:
    sys.exit(f"segment_reader.py: {missing}; it needs python3-numpy")

UNUSED, WRITTEN = 0, 2
PATIENCE = 10.0  # seconds, for the camera to start and for each image
POLL = 0.001  # seconds between checks of the status word
SETTLE = 0.005  # seconds, several times as long as copying an image

LIBC = ctypes.CDLL(None, use_errno=True)
LIBC.shmget.argtypes = [ctypes.c_int, ctypes.c_size_t, ctypes.c_int]
LIBC.shmat.argtypes = [ctypes.c_int, ctypes.c_void_p, ctypes.c_int]
LIBC.shmat.restype = ctypes.c_void_p
LIBC.shmdt.argtypes = [ctypes.c_void_p]
FAILED = ctypes.c_void_p(-1).value


class Segment:
    """A camera's segment, mapped until `close`. Belongs to the camera, which removes it."""

    def __init__(self, key, width, height):
        """Waits for the segment of images of width x height pixels. Raises OSError if it cannot be used."""
        count = width * height * 3
        end = time.monotonic() + PATIENCE
        # The system refuses a segment that is smaller than requested (EINVAL).
        while (number := LIBC.shmget(key, 4 + count, 0)) == -1:
            reason = ctypes.get_errno()
            if reason == errno.EINVAL:
                raise OSError(reason, "the segment is smaller: is the size that of one eye?")
            if reason != errno.ENOENT:
                raise OSError(reason, os.strerror(reason))
            if time.monotonic() > end:
                raise OSError(reason, "no segment with this key: does the camera run, with shared memory?")
            time.sleep(POLL)
        self._address = LIBC.shmat(number, None, 0)  # writable, to reset the status word
        if self._address == FAILED:
            raise OSError(ctypes.get_errno(), "the segment cannot be mapped")
        self._status = ctypes.c_int32.from_address(self._address)
        pixels = (ctypes.c_uint8 * count).from_address(self._address + 4)
        self._pixels = np.frombuffer(pixels, np.uint8).reshape(height, width, 3)  # the segment itself, not a copy

    def take(self):
        """The next image, height x width x 3, uint8, BGR; the caller's own. Raises TimeoutError if none comes."""
        end = time.monotonic() + PATIENCE
        while self._status.value != WRITTEN:
            if time.monotonic() > end:
                raise TimeoutError("no image for 10 s: the camera was stopped, or delivers no frames")
            time.sleep(POLL)
        # The mark comes before the pixels, so the image is complete once it has stopped changing.
        time.sleep(SETTLE)
        image = self._pixels.copy()
        while True:
            time.sleep(SETTLE)
            again = self._pixels.copy()
            if np.array_equal(image, again):
                break
            if time.monotonic() > end:
                raise TimeoutError("the image keeps changing: does another program also read this segment?")
            image = again
        # Stored after the pixels were read, also on processors that reorder: no store is executed speculatively.
        self._status.value = UNUSED
        return image

    def close(self):
        """Unmaps the segment; images already read stay valid."""
        if self._address is not None:
            del self._pixels, self._status  # they would access unmapped memory
            LIBC.shmdt(self._address)
            self._address = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


def write_ppm(path, image):
    """A portable pixmap; its pixels are red, green, blue."""
    height, width, _ = image.shape
    with open(path, "wb") as file:
        file.write(b"P6\n%d %d\n255\n" % (width, height))
        file.write(image[:, :, ::-1].tobytes())


def main(arguments):
    numbers = arguments[:4]
    if len(arguments) != 5 or not all(each.isascii() and each.isdigit() and int(each) > 0 for each in numbers):
        print("usage: segment_reader.py KEY WIDTH HEIGHT COUNT PREFIX", file=sys.stderr)
        return 2
    key, width, height, count = map(int, numbers)
    if key > 2**31 - 1 or width > 32767 or height > 32767:
        print("segment_reader.py: a key has 31 bits, a side at most 32767 pixels", file=sys.stderr)
        return 2
    try:
        with Segment(key, width, height) as segment:
            for number in range(count):
                path = f"{arguments[4]}{number}.ppm"
                write_ppm(path, segment.take())
                print(path, flush=True)
    except OSError as error:
        print(f"segment_reader.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
