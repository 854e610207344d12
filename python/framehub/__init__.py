"""libframehub from Python: share cameras among subscribers, images as numpy views.

    import numpy as np, framehub as fh
    front = fh.CameraInfo(name="front", model="Simulator2D", field_of_view=(1.06, 0.83),
                          resolutions=[(320, 240), (640, 480)],
                          color_spaces=[fh.ColorSpace.YUV_422], frame_rates=[15, 30])
    hub = fh.Hub([front])
    me = hub.subscribe("tracker", "front", (320, 240), fh.ColorSpace.RGB_888, 15)
    hub.put_image("front", np.zeros((480, 640, 3), np.uint8), fh.ColorSpace.RGB_888)
    with hub.image(me) as frame:        # None when the library gives no image
        view = frame.array              # (240, 320, 3) uint8, read-only, no copy
    hub.unsubscribe(me)

Resolutions are (width, height) tuples, fields of view (horizontal, vertical)
in radians. ColorSpace and Parameter are IntEnums with the library's numbers.

Images: hub.image(name) and hub.raw_image(name) are context managers that
fetch on entry and release on exit, also when the block raises; they yield a
Frame (.array, .timestamp, .camera, .color_space, .resolution,
.field_of_view) or None. A multi-stream subscriber (hub.subscribe_multi) uses
hub.images(name) and hub.raw_images(name), which yield a list with a Frame or
None for each active camera. frame.array is a view over the library's buffer:
it is valid inside the block only, so copy it (frame.array.copy()) to keep it.

Failures follow the library: False, an empty list or None, and a log record.
subscribe and subscribe_multi give None instead of an empty name,
camera_parameter None instead of INVALID_PARAMETER_VALUE. A camera
description the library can't build raises framehub.Error (a ValueError);
put_image raises ValueError for an array that does not fit the colour space.
Calls that grab, convert or wait release the GIL.
"""

import atexit
import logging
from dataclasses import dataclass, field
from typing import List, Tuple

__all__ = [
    "CameraInfo", "ColorSpace", "Error", "Frame", "Hub", "INVALID_PARAMETER_VALUE", "Parameter", "ParameterInfo",
    "Preferences", "color_space_channels", "color_space_depth", "color_space_name", "models", "parameter_name",
    "route_logs_to_logging", "set_log_level",
]

from ._framehub import (
    INVALID_PARAMETER_VALUE,
    ColorSpace,
    Error,
    Frame,
    Hub,
    Parameter,
    ParameterInfo,
    Preferences,
    color_space_channels,
    color_space_depth,
    color_space_name,
    models,
    parameter_name,
    set_log_level,
)
from . import _framehub

for _public in (Error, Frame, Hub):
    _public.__module__ = __name__


@dataclass
class CameraInfo:
    """Describes a camera; model picks the back-end (see framehub.models())."""

    name: str
    model: str
    field_of_view: Tuple[float, float] = (0.0, 0.0)
    resolutions: List[Tuple[int, int]] = field(default_factory=list)
    color_spaces: List[ColorSpace] = field(default_factory=list)
    frame_rates: List[int] = field(default_factory=list)
    backend_argument: str = ""
    horizontal_flip: bool = False
    vertical_flip: bool = False


_LEVELS = {1: logging.CRITICAL, 2: logging.ERROR, 3: logging.WARNING, 4: logging.INFO, 5: logging.DEBUG}


def _deliver(level, category, function, message):
    logger = logging.getLogger(category)
    py_level = _LEVELS.get(level, logging.INFO)
    if logger.isEnabledFor(py_level):
        logger.handle(logger.makeRecord(category, py_level, "", 0, message, None, None, func=function))


_routed = False


def route_logs_to_logging():
    """Send the library's log records to the logging module, one logger per
    category ("vision.framehub.camera", ...), the C++ function as funcName.
    Which records are written at all is set with set_log_level()."""
    global _routed
    _framehub._route_logs(_deliver)
    if not _routed:
        # Records written after this (threads outliving the interpreter's
        # shutdown) go to stderr instead of a half torn-down Python.
        atexit.register(_framehub._unroute_logs)
        _routed = True
