#include "camera/camera_registry.h"
#include "simulator/camera_simulator_2d.h"
#include "simulator/camera_simulator_3d.h"

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_REGISTER_CAMERA_MODEL("Simulator2D", CameraSimulator2D)
FRAMEHUB_REGISTER_CAMERA_MODEL("Simulator3D", CameraSimulator3D)

} // namespace FrameHub
} // namespace Kelmo
