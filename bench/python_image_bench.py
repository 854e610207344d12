"""Per-frame cost of `with hub.image(name) as frame: frame.array` against the
same fetch in C++ (image_fetch_loop), both at 640x480 RGB served from the ring,
both the median of batches. Prints both and the Python overhead per frame.

    PYTHONPATH=build-bench/python python3 bench/python_image_bench.py build-bench/bench/image_fetch_loop
"""

import subprocess
import sys
import time

import numpy as np

import framehub as fh

BATCHES, PER_BATCH = 200, 2000


def python_ns_per_fetch():
    cam = fh.CameraInfo(name="cam", model="Simulator2D", field_of_view=(1.0, 0.75), resolutions=[(640, 480)],
                        color_spaces=[fh.ColorSpace.YUV_422], frame_rates=[1])
    fh.set_log_level(1)
    hub = fh.Hub([cam])
    me = hub.subscribe("bench", "cam", (640, 480), fh.ColorSpace.RGB_888, 1)
    pixels = np.full((480, 640, 3), 77, np.uint8)
    image = hub.image
    took = []
    rows = 0
    for _ in range(BATCHES):
        hub.put_image("cam", pixels, fh.ColorSpace.RGB_888)  # images are stamped when put
        start = time.perf_counter_ns()
        for _ in range(PER_BATCH):
            with image(me) as frame:
                rows += frame.array.shape[0]
        took.append((time.perf_counter_ns() - start) / PER_BATCH)
    assert rows == BATCHES * PER_BATCH * 480
    return sorted(took)[BATCHES // 2]


def main():
    baseline = sys.argv[1] if len(sys.argv) > 1 else "build-bench/bench/image_fetch_loop"
    cpp = float(subprocess.run([baseline, str(BATCHES)], check=True, capture_output=True, text=True).stdout)
    py = python_ns_per_fetch()
    print(f"640x480 RGB fetch + view + release, median of {BATCHES} batches of {PER_BATCH}")
    print(f"  C++    {cpp / 1000:7.2f} us")
    print(f"  Python {py / 1000:7.2f} us")
    print(f"  Python overhead {(py - cpp) / 1000:.2f} us per frame (target below 5 us)")


if __name__ == "__main__":
    main()
