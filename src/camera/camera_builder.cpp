#include <framehub/camera_builder.h>

#include "camera/camera.h"
#include "camera/camera_registry.h"
#include "types/framehub_log.h"

#include <kelmoerror/kelmo_error.h>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camerabuilder")

namespace {
// Every camera reads the first and last element of its native sets.
void refuse(const std::string& description)
{
    FRAMEHUB_LOG_AS(LEVEL_ERROR, "getCamera") << "Can't create camera backend, " << description << ".";
    throw Kelmo::KelmoError("CameraBuilder", "getCamera", description, nullptr, 0);
}

void refuseEmptySet(bool empty, const char* what)
{
    if (empty)
        refuse(std::string("Empty set of ") + what + " in the camera description");
}

// Larger than any sensor: the raw ring allocates the largest native size, so
// a mistyped description must not become a terabyte allocation.
const uint64_t kLargestSide = 16384;

void refuseImpossibleSizes(const std::set<Resolution>& resolutions)
{
    for (const Resolution& r : resolutions)
        if (r.width == 0 || r.height == 0 || r.width > kLargestSide || r.height > kLargestSide)
            refuse("Resolution " + std::to_string(r.width) + "x" + std::to_string(r.height) + " out of 1 to "
                + std::to_string(kLargestSide) + " in the camera description");
}
} // namespace

CameraBuilder::CameraBuilder(const CameraInfo& info)
    : _info(info)
{
}

boost::shared_ptr<Camera> CameraBuilder::getCamera() const
{
    const CameraFactory factory = findCameraModel(_info.model);
    if (!factory) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "Can't create camera backend,  model \"" << _info.model << "\" unsupported.";
        throw Kelmo::KelmoError("CameraBuilder", "Constructor", "Camera not supported", nullptr, 0);
    }
    refuseEmptySet(_info.resolutions.empty(), "resolutions");
    refuseEmptySet(_info.colorSpaces.empty(), "color spaces");
    refuseEmptySet(_info.frameRates.empty(), "frame rates");
    refuseImpossibleSizes(_info.resolutions);

    boost::shared_ptr<Camera> camera = factory(_info);
    camera->setFieldOfView(_info.fieldOfView);
    camera->setDefaultFlip(_info.horizontalFlip, _info.verticalFlip);
    camera->setNativelySupportedResolutions(_info.resolutions);
    camera->setNativelySupportedColorSpaces(_info.colorSpaces);
    camera->setNativelySupportedFrameRates(_info.frameRates);
    return camera;
}

std::vector<std::string> CameraBuilder::models() { return registeredCameraModels(); }

} // namespace FrameHub
} // namespace Kelmo
