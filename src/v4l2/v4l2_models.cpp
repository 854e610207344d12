#include "camera/camera_registry.h"
#include "v4l2/camera_v4l2.h"

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_REGISTER_CAMERA_MODEL("V4L2", CameraV4L2)

} // namespace FrameHub
} // namespace Kelmo
