#!/usr/bin/env python3
"""Three subscribers share one simulated camera, each in its own format.

A moving test card is put into the camera; a viewer (640x480 RGB at 30 fps),
a tracker (320x240 luminance at 15 fps) and a thumbnailer (160x120 BGR at
5 fps) fetch from it. With OpenCV's Python bindings and a display the frames
are shown in windows; otherwise each subscriber's last frame is written as a
PNG into --out.

    PYTHONPATH=build/python python3 examples/python/share_camera.py --frames 60
"""

import argparse
import os
import struct
import zlib

import numpy as np

import framehub as fh

try:
    import cv2
except ImportError:
    cv2 = None

CS = fh.ColorSpace


def test_card(width, height, step):
    """Colour ramps with a bright bar moving across."""
    y, x = np.mgrid[0:height, 0:width]
    card = np.stack([(x * 255 // width), (y * 255 // height), np.full_like(x, 96)], axis=-1).astype(np.uint8)
    bar = (step * 8) % width
    card[:, bar:bar + 16] = 255
    return card


def write_png(path, image):
    """8-bit grey or RGB to PNG without any imaging library."""
    height, width = image.shape[:2]
    colour = 2 if image.ndim == 3 else 0
    rows = b"".join(b"\0" + image[r].tobytes() for r in range(height))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, colour, 0, 0, 0)
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--frames", type=int, default=90, help="frames to put (default 90)")
    parser.add_argument("--out", default="python-output", help="folder for the PNGs (default python-output)")
    parser.add_argument("--no-window", action="store_true", help="write PNGs even when OpenCV can show windows")
    args = parser.parse_args()

    front = fh.CameraInfo(name="front", model="Simulator2D", field_of_view=(1.06, 0.83),
                          resolutions=[(160, 120), (320, 240), (640, 480)],
                          color_spaces=[CS.YUV_422], frame_rates=[5, 15, 30])
    hub = fh.Hub([front])
    clients = [hub.subscribe("viewer", "front", (640, 480), CS.RGB_888, 30),
               hub.subscribe("tracker", "front", (320, 240), CS.Y_8, 15),
               hub.subscribe("thumbs", "front", (160, 120), CS.BGR_888, 5)]
    windows = cv2 is not None and not args.no_window and bool(os.environ.get("DISPLAY"))

    last = {}
    for step in range(args.frames):
        hub.put_image("front", test_card(640, 480, step), CS.RGB_888)
        for name in clients:
            with hub.image(name) as frame:
                if frame is None:
                    continue
                # The view is valid inside the block only: keep a copy.
                last[name] = (frame.color_space, frame.array.copy())
        if windows:
            for name, (color_space, image) in last.items():
                cv2.imshow(name, cv2.cvtColor(image, cv2.COLOR_RGB2BGR) if color_space == CS.RGB_888 else image)
            if cv2.waitKey(33) == 27:
                break

    for name in clients:
        hub.unsubscribe(name)
    if windows:
        cv2.destroyAllWindows()
        return
    os.makedirs(args.out, exist_ok=True)
    for name, (color_space, image) in last.items():
        if color_space == CS.BGR_888:
            image = np.ascontiguousarray(image[..., ::-1])
        path = os.path.join(args.out, name + ".png")
        write_png(path, image)
        print(f"{name}: {image.shape[1]}x{image.shape[0]} {color_space.name} -> {path}")


if __name__ == "__main__":
    main()
