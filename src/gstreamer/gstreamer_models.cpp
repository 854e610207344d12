#include "camera/camera_registry.h"
#include "gstreamer/camera_gstreamer.h"

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_REGISTER_CAMERA_MODEL("GStreamer", CameraGStreamer)

} // namespace FrameHub
} // namespace Kelmo
