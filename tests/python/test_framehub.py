"""The Python module against the library: bytes, releases, bad arrays, threads, logs."""

import logging
import os
import subprocess
import sys
import threading

import numpy as np
import pytest

import framehub as fh

CS = fh.ColorSpace


def camera(name, model="Simulator2D", stored=CS.YUV_422, rates=(5, 15)):
    return fh.CameraInfo(name=name, model=model, field_of_view=(1.0, 0.75),
                         resolutions=[(160, 120), (320, 240)], color_spaces=[stored],
                         frame_rates=list(rates))


def pattern(color_space, width, height):
    """The reference program's input: bytes for 8-bit spaces, millimetres for depth."""
    if color_space == CS.DEPTH_16:
        i = np.arange(width * height, dtype=np.int64)
        return (500 + (i * 37) % 3000).astype(np.uint16).reshape(height, width)
    i = np.arange(width * height * 3, dtype=np.int64)
    return ((i * 31 + 7) & 0xFF).astype(np.uint8).reshape(height, width, 3)


@pytest.mark.parametrize("case, model, stored, given, wanted, dtype, shape", [
    ("rgb", "Simulator2D", CS.YUV_422, CS.RGB_888, CS.RGB_888, np.uint8, (240, 320, 3)),
    ("depth", "Simulator3D", CS.DEPTH_16, CS.DEPTH_16, CS.DEPTH_16, np.uint16, (240, 320)),
    ("xyz", "Simulator3D", CS.DEPTH_16, CS.DEPTH_16, CS.XYZ_323232, np.float32, (240, 320, 3)),
])
def test_round_trip_matches_cpp(case, model, stored, given, wanted, dtype, shape):
    reference = subprocess.run([os.environ["FRAMEHUB_REFERENCE"], case], capture_output=True,
                               check=True, timeout=30).stdout
    hub = fh.Hub([camera("cam", model, stored)])
    me = hub.subscribe("py", "cam", (320, 240), wanted, 15)
    assert hub.put_image("cam", pattern(given, 320, 240), given)
    with hub.image(me) as frame:
        view = frame.array
        assert (view.shape, view.dtype, frame.camera, frame.color_space) == (shape, dtype, "cam", wanted)
        assert not view.flags.owndata and not view.flags.writeable
        assert view.tobytes() == reference


def test_with_block_releases_on_exception_and_only_its_own_image():
    hub = fh.Hub([camera("cam")])
    me = hub.subscribe("py", "cam", (320, 240), CS.RGB_888, 15)
    hub.put_image("cam", pattern(CS.RGB_888, 320, 240), CS.RGB_888)
    with pytest.raises(KeyError):
        with hub.image(me) as frame:
            raise KeyError("inside")
    with pytest.raises(ValueError):
        frame.array  # released with its block
    with hub.image(me) as outer:
        with hub.image(me) as inner:  # still held: the library gives nothing
            assert inner is None
        with hub.image(me) as again:  # the inner block released nothing
            assert again is None
        assert outer.array.shape == (240, 320, 3)
    with hub.image("nobody_0") as none:
        assert none is None
    assert hub.unsubscribe(me)


def test_multi_stream_frames_follow_the_active_list():
    hub = fh.Hub([camera("left"), camera("right")])
    me = hub.subscribe_multi("pair", ["right", "left"], [(320, 240), (160, 120)], [CS.RGB_888, CS.Y_8], 15)
    for name in ("left", "right"):
        hub.put_image(name, pattern(CS.RGB_888, 320, 240), CS.RGB_888)
    for _ in range(2):  # the second round shows the first released
        with hub.images(me) as frames:
            assert [(f.camera, f.array.shape) for f in frames] == [("right", (240, 320, 3)), ("left", (120, 160))]
    with hub.raw_images(me) as frames:
        assert [f.array.shape for f in frames] == [(240, 320, 2), (120, 160, 2)]


@pytest.mark.parametrize("array, color_space, error", [
    (np.zeros((240, 320, 3), np.uint16), CS.RGB_888, ValueError),      # dtype
    (np.zeros((240, 320, 4), np.uint8), CS.RGB_888, ValueError),       # channels
    (np.zeros((240 * 320 * 3,), np.uint8), CS.RGB_888, ValueError),    # flat
    (np.zeros((240, 640, 3), np.uint8)[:, ::2], CS.RGB_888, ValueError),  # strided
    (np.zeros((0, 320, 3), np.uint8), CS.RGB_888, ValueError),         # empty
    (np.zeros((240, 320), np.float32), CS.DEPTH_16, ValueError),
    (np.zeros((240, 320), np.uint16).byteswap().view(">u2"), CS.DEPTH_16, ValueError),
    (np.zeros((240, 320), np.uint8), CS.UNKNOWN, ValueError),
    (np.zeros((240, 320), np.uint8), 99, ValueError),
    ([[0] * 320] * 240, CS.Y_8, TypeError),
])
def test_put_image_refuses_arrays_that_do_not_fit(array, color_space, error):
    hub = fh.Hub([camera("cam")])
    with pytest.raises(error):
        hub.put_image("cam", array, color_space)


@pytest.mark.parametrize("info, error", [
    (camera("cam", model="NoSuchModel"), fh.Error),                    # the library's refusal
    (fh.CameraInfo(name="cam", model="Simulator2D"), fh.Error),        # empty sets
    (fh.CameraInfo(name="cam", model="Simulator2D", resolutions=5), TypeError),
    (fh.CameraInfo(name="cam", model="Simulator2D", resolutions=[(1, -1)]), TypeError),
    (object(), TypeError),
])
def test_camera_descriptions_the_library_cannot_build(info, error):
    with pytest.raises(error):
        fh.Hub([info])
    assert issubclass(fh.Error, ValueError)


def test_enumerations_keep_the_public_numbers():
    assert [CS.YUV_422, CS.RGB_888, CS.INFRARED_16, CS.DEPTH_16, CS.UNKNOWN] == [0, 9, 18, 19, 22]
    assert [fh.Parameter.BRIGHTNESS, fh.Parameter.KEEP_ALIVE, fh.Parameter.INVALID] == [0, 31, 36]
    hub = fh.Hub([camera("cam")])
    assert hub.camera_color_space("cam") is CS.YUV_422


def test_two_threads_fetch_from_two_cameras_at_once():
    # At 1000 fps every fetch finds its image stale, so each one grabs and
    # converts. That the GIL is let go meanwhile is shown by the next test;
    # this one shows the two threads' images never get mixed up.
    hub = fh.Hub([camera("a", rates=(1000,)), camera("b", rates=(1000,))])
    names = [hub.subscribe(c, c, (320, 240), CS.RGB_888, 1000) for c in ("a", "b")]
    for c, level in (("a", 0), ("b", 255)):
        hub.put_image(c, np.full((240, 320, 3), level, np.uint8), CS.RGB_888)
    done = [0, 0]
    failures = []
    start = threading.Barrier(2, timeout=10)

    def fetch(index):
        start.wait()
        for _ in range(200):
            with hub.image(names[index]) as frame:
                if (frame is None or frame.camera != "ab"[index] or frame.array.shape != (240, 320, 3)
                        or (frame.array.mean() > 128) != bool(index)):
                    failures.append((index, frame))
            done[index] += 1

    threads = [threading.Thread(target=fetch, args=(i,)) for i in (0, 1)]
    for t in threads:
        t.start()
    for t in threads:
        t.join(timeout=60)
    assert not any(t.is_alive() for t in threads)
    assert failures == [] and done == [200, 200]


def test_a_call_waiting_in_the_library_lets_python_run():
    # Thread A's record is held in a logging handler until a Python thread
    # runs, while the main thread's call waits for lumo's sink behind it. A
    # call that kept the GIL there would deadlock: run it in a child process.
    script = """
import logging, threading, framehub as fh
fh.route_logs_to_logging()
hub = fh.Hub()
in_handler, go, calling = threading.Event(), threading.Event(), threading.Event()
released = []
class Hold(logging.Handler):
    def emit(self, record):
        if threading.current_thread() is holder:
            in_handler.set()
            released.append(go.wait(10))
logging.getLogger("vision.framehub").addHandler(Hold())
holder = threading.Thread(target=lambda: hub.unsubscribe("ghost_0"))
holder.start()
assert in_handler.wait(10)
releaser = threading.Thread(target=lambda: calling.wait(10) and go.set())
releaser.start()
calling.set()
hub.unsubscribe("ghost_1")
holder.join(10)
assert released == [True], released
"""
    result = subprocess.run([sys.executable, "-c", script], capture_output=True, timeout=30)
    assert result.returncode == 0, result.stderr[-2000:]


def test_log_records_reach_logging_from_any_thread(caplog):
    fh.route_logs_to_logging()
    hub = fh.Hub([camera("cam")])
    with caplog.at_level(logging.DEBUG, logger="vision.framehub"):
        worker = threading.Thread(target=lambda: hub.unsubscribe("ghost_0"), name="worker")
        worker.start()
        worker.join(timeout=10)
    assert [(r.name, r.levelname, r.funcName, r.threadName, r.getMessage()) for r in caplog.records] == [
        ("vision.framehub", "ERROR", "unsubscribe", "worker", 'Can\'t unsubscribe "ghost_0", subscriber is unknown.')]


def test_records_from_threads_during_shutdown_do_not_crash():
    script = """
import threading, framehub as fh
fh.route_logs_to_logging()
hub = fh.Hub()
def spam():
    while True:
        hub.unsubscribe("ghost_0")
threading.Thread(target=spam, daemon=True).start()
threading.Thread(target=spam, daemon=True).start()
"""
    result = subprocess.run([sys.executable, "-c", script], capture_output=True, timeout=60)
    assert result.returncode == 0, result.stderr[-2000:]


def test_example_script_writes_each_subscribers_frame(tmp_path):
    script = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "python", "share_camera.py")
    subprocess.run([sys.executable, script, "--frames", "3", "--no-window", "--out", str(tmp_path)],
                   check=True, capture_output=True, timeout=60)
    for name, size in (("viewer_0", 640), ("tracker_0", 320), ("thumbs_0", 160)):
        header = (tmp_path / (name + ".png")).read_bytes()[:24]
        assert header[:8] == b"\x89PNG\r\n\x1a\n" and int.from_bytes(header[16:20], "big") == size
