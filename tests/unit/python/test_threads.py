# SPDX-License-Identifier: Apache-2.0
"""The interpreter lock, threads that read at once, stops, and the end of cameras and of the interpreter."""

import gc
import subprocess
import sys
import textwrap
import threading
import time
import weakref

import pytest
from conftest import RAW, Pictures, await_that, calibrate, camera_on

import stereo_camera as sc


class Gated(Pictures):
    """Delivers the warm-up's ten frames, and then nothing until it is let."""

    def __init__(self):
        super().__init__()
        self.let = threading.Event()

    def read(self):
        picture = super().read()
        return picture if self.reads <= 10 or self.let.is_set() else None


class Thread(threading.Thread):
    """Keeps what its function gives."""

    def __init__(self, function):
        super().__init__(daemon=True)
        self.function, self.result, self.error = function, "nothing yet", None
        self.start()

    def run(self):
        try:
            self.result = self.function()
        except Exception as error:  # for the test to see
            self.error = error

    def outcome(self):
        self.join(120)
        assert not self.is_alive()
        if self.error:
            raise self.error
        return self.result


READS = [
    lambda c: c.getRawFrame(),
    lambda c: c.getStereoFrame(),
    lambda c: c.getRectStereoFrame(),
    lambda c: c.getRectStereoFrame(view=True),
    lambda c: c.getPointCloud(),
    lambda c: c.getPointCloud(colored=True),
]


def test_other_threads_go_on_while_a_read_waits():
    source = Gated()
    with camera_on(source) as camera:
        camera.startCapture()
        waiting = Thread(camera.getRawFrame)
        # Counting from here is only possible if the waiting thread holds no lock of the interpreter.
        before = source.reads
        await_that(lambda: source.reads > before + 20)
        assert waiting.is_alive() and waiting.result == "nothing yet"
        source.let.set()
        assert waiting.outcome().frame.shape == (RAW[1], RAW[0], 3)


def test_a_stop_sends_waiting_readers_home_with_none():
    source = Gated()
    camera = calibrate(camera_on(source))
    camera.startCapture()
    camera.startStereoCompute()
    readers = [Thread(lambda read=read: read(camera)) for read in READS for _ in range(2)]
    timer = threading.Timer(0.3, camera.stopCapture)
    timer.start()
    assert [reader.outcome() for reader in readers] == [None] * len(readers)
    timer.join()
    camera.stopStereoCompute()
    assert camera.getRawFrame() is None and not camera.isOpened()


def test_many_threads_read_at_once(simulated):
    simulated.startCapture()
    simulated.startStereoCompute()
    simulated.getPointCloud()

    def several(read):
        return [read(simulated) for _ in range(5)]

    everything = READS + [lambda c: c.getDepthFrame()]
    threads = [Thread(lambda read=read: several(read)) for read in everything for _ in range(2)]
    for thread in threads:
        results = thread.outcome()
        assert len(results) == 5 and all(result is not None for result in results)
        stamps = [result.timestamp for result in results if hasattr(result, "timestamp")]
        assert stamps == sorted(stamps)


def test_stops_may_come_from_several_threads_at_once(simulated):
    simulated.startCapture()
    simulated.startStereoCompute()
    stops = [Thread(stop) for stop in (simulated.stopCapture, simulated.stopStereoCompute) * 4]
    assert all(stop.outcome() is True for stop in stops)
    assert not simulated.m_captureThread and not simulated.m_computeThread


def test_a_stop_within_a_stop_is_refused(unraisable):
    class Recursive(Pictures):
        camera = None
        inside = False

        def read(self):
            self.inside = True
            self.gone.wait()
            return None

        def release(self):
            try:
                self.camera().stopCapture()
            finally:
                super().release()

    source = Recursive()
    camera = camera_on(source)
    source.camera = weakref.ref(camera)
    camera.startCapture()
    await_that(lambda: source.inside)
    assert camera.stopCapture()
    assert [kind for kind, _ in unraisable] == [RuntimeError] and "another thread" in unraisable[0][1]


def test_with_stops_the_workers_also_after_an_exception(simulated):
    with pytest.raises(KeyError):
        with simulated as camera:
            assert camera is simulated
            camera.startCapture()
            camera.startStereoCompute()
            assert camera.m_captureThread and camera.m_computeThread
            raise KeyError
    assert not simulated.m_captureThread and not simulated.m_computeThread


@pytest.mark.parametrize("derived", [False, True])
def test_a_running_camera_may_be_dropped(derived):
    class Derived(sc.SimulatedCamera):
        def getStereoFrame(self):
            return super().getStereoFrame()

    for _ in range(3):
        kind = Derived if derived else sc.SimulatedCamera
        camera = kind(frameSize=RAW, rate=0, moving=False, rectFrameSize=(64, 48))
        camera.startCapture()
        camera.startStereoCompute()
        camera.getPointCloud()
        gone = weakref.ref(camera)
        del camera
        gc.collect()
        await_that(lambda: gone() is None)


def test_a_worker_waits_for_no_lock_that_a_stop_holds():
    """Overrides run on while other threads start and stop: each wants what the other has."""

    class Busy(sc.SimulatedCamera):
        def getStereoFrame(self):
            sum(range(2000))
            return super().getStereoFrame()

    with Busy(frameSize=RAW, rate=0, moving=False, rectFrameSize=(64, 48)) as camera:
        camera.startCapture()
        for _ in range(10):
            assert camera.startStereoCompute()
            assert not camera.startStereoCompute()
            assert camera.getStereoFrame() is not None
            assert camera.stopStereoCompute()


@pytest.mark.parametrize("how", ["running", "derived", "source", "raising", "daemon reader"])
def test_the_interpreter_may_end_while_workers_run(how):
    script = f"""
        import threading
        import numpy as np
        import stereo_camera as sc

        how = {how!r}

        class Derived(sc.SimulatedCamera):
            def getStereoFrame(self):
                if how == "raising" and threading.current_thread() is not threading.main_thread():
                    raise ValueError("on and on")
                return super().getStereoFrame()

        class Source(sc.VideoCapture):
            def read(self):
                return np.zeros((400, 928, 3), np.uint8)

        options = dict(frameSize=(928, 400), rate=0, moving=False, rectFrameSize=(64, 48))
        if how == "source":
            camera = sc.VirtualCamera(Source())
        else:
            camera = (sc.SimulatedCamera if how == "running" else Derived)(**options)
        camera.startCapture()
        if how != "source":
            camera.startStereoCompute()
        assert camera.getRawFrame() is not None
        if how == "daemon reader":
            threading.Thread(target=lambda: [camera.getPointCloud() for _ in range(10**9)], daemon=True).start()
        print("the end", flush=True)
    """
    done = subprocess.run([sys.executable, "-c", textwrap.dedent(script)], capture_output=True, text=True, timeout=240)
    assert done.returncode == 0, done.stderr
    assert "the end" in done.stdout
    assert ("ValueError: on and on" in done.stderr) == (how == "raising")
