// FrameHubPrivate: talking to a camera by name, without a subscription.
#include "frontend/frame_hub_p.h"

#include "camera/camera.h"

#include <boost/thread/locks.hpp>

#include <limits>

namespace Kelmo {
namespace FrameHub {

namespace {

const uint64_t kAllOnes = std::numeric_limits<uint64_t>::max();
const ParameterInfo kInvalidInfo = { INVALID_PARAMETER_VALUE, INVALID_PARAMETER_VALUE, 0, INVALID_PARAMETER_VALUE };
} // namespace

// Pattern of every row: alias resolved, guard, one call on the camera.
template <typename Result, typename Call>
Result FrameHubPrivate::_onCamera(const std::string& cameraName, Result neutral, Call call) const
{
    Camera* const camera = _findCamera(_getRealCameraName(cameraName));
    return camera ? call(*camera) : neutral;
}

bool FrameHubPrivate::openCamera(const std::string& cameraName)
{
    return _onCamera(cameraName, false, [](Camera& c) { return c.open(); });
}

bool FrameHubPrivate::closeCamera(const std::string& cameraName)
{
    return _onCamera(cameraName, false, [](Camera& c) { return c.close(); });
}

bool FrameHubPrivate::isCameraOpen(const std::string& cameraName) const
{
    return _onCamera(cameraName, false, [](Camera& c) { return c.isOpen(); });
}

bool FrameHubPrivate::startCamera(const std::string& cameraName)
{
    return _onCamera(cameraName, false, [](Camera& c) { return c.start(); });
}

bool FrameHubPrivate::stopCamera(const std::string& cameraName)
{
    return _onCamera(cameraName, false, [](Camera& c) { return c.stop(); });
}

bool FrameHubPrivate::isCameraStarted(const std::string& cameraName) const
{
    return _onCamera(cameraName, false, [](Camera& c) { return c.isStarted(); });
}

bool FrameHubPrivate::resetCamera(const std::string& cameraName) const
{
    return _onCamera(cameraName, false, [](Camera& c) { return c.reset(); });
}

std::string FrameHubPrivate::getCameraModel(const std::string& cameraName) const
{
    return _onCamera(cameraName, std::string(), [](Camera& c) { return c.getModel(); });
}

std::string FrameHubPrivate::getCameraName(const std::string& cameraName) const
{
    return _onCamera(cameraName, std::string(), [](Camera& c) { return c.getName(); });
}

int FrameHubPrivate::getCameraFrameRate(const std::string& cameraName) const
{
    return _onCamera(cameraName, -1, [](Camera& c) { return c.getFrameRate(); });
}

// The two ranges have different neutral values on purpose.
std::pair<int, int> FrameHubPrivate::getCameraFrameRateRange(const std::string& cameraName) const
{
    return _onCamera(cameraName, std::make_pair(0, 0), [](Camera& c) { return c.getFrameRateRange(); });
}

Resolution FrameHubPrivate::getCameraResolution(const std::string& cameraName) const
{
    return _onCamera(cameraName, Resolution(kAllOnes, kAllOnes), [](Camera& c) { return c.getResolution(); });
}

std::pair<Resolution, Resolution> FrameHubPrivate::getCameraResolutionRange(const std::string& cameraName) const
{
    return _onCamera(cameraName, std::make_pair(Resolution(kAllOnes, kAllOnes), Resolution(kAllOnes, kAllOnes)),
        [](Camera& c) { return c.getResolutionRange(); });
}

ColorSpace FrameHubPrivate::getCameraColorSpace(const std::string& cameraName) const
{
    return _onCamera(cameraName, COLORSPACE_UNKNOWN, [](Camera& c) { return c.getColorSpace(); });
}

FieldOfView FrameHubPrivate::getCameraFieldOfView(const std::string& cameraName) const
{
    return _onCamera(cameraName, FieldOfView(0.0f, 0.0f), [](Camera& c) { return c.getFieldOfView(); });
}

int FrameHubPrivate::getCameraParameter(const std::string& cameraName, const Parameter& parameter) const
{
    return _onCamera(
        cameraName, static_cast<int>(INVALID_PARAMETER_VALUE), [&](Camera& c) { return c.getParameter(parameter); });
}

ParameterInfo FrameHubPrivate::getCameraParameterInfo(const std::string& cameraName, const Parameter& parameter) const
{
    return _onCamera(cameraName, kInvalidInfo, [&](Camera& c) { return c.getParameterInfo(parameter); });
}

bool FrameHubPrivate::setCameraParameter(const std::string& cameraName, const Parameter& parameter, int value)
{
    return _onCamera(cameraName, false, [&](Camera& c) { return c.setParameter(parameter, value); });
}

bool FrameHubPrivate::setCameraParameterToDefault(const std::string& cameraName, const Parameter& parameter)
{
    return _onCamera(cameraName, false, [&](Camera& c) { return c.resetParameter(parameter); });
}

bool FrameHubPrivate::setAllCameraParametersToDefault(const std::string& cameraName)
{
    return _onCamera(cameraName, false, [](Camera& c) { return c.resetParameters(); });
}

// ---- Angular conversions: as above ---------------------------------------------

#define FRAMEHUB_ANGULAR(operation)                                                                                    \
    std::vector<float> FrameHubPrivate::operation(const std::string& cameraName, const std::vector<float>& values)     \
        const                                                                                                          \
    {                                                                                                                  \
        Camera* const camera = _findCamera(_getRealCameraName(cameraName));                                            \
        return camera ? camera->operation(values) : std::vector<float>();                                              \
    }

FRAMEHUB_ANGULAR(getAngularPositionFromImagePosition)
FRAMEHUB_ANGULAR(getImagePositionFromAngularPosition)
FRAMEHUB_ANGULAR(getAngularSizeFromImageSize)
FRAMEHUB_ANGULAR(getImageSizeFromAngularSize)
FRAMEHUB_ANGULAR(getImageInfoFromAngularInfo)

#undef FRAMEHUB_ANGULAR

std::vector<float> FrameHubPrivate::getImageInfoFromAngularInfoWithResolution(
    const std::string& cameraName, const std::vector<float>& values, const Resolution& resolution) const
{
    Camera* const camera = _findCamera(_getRealCameraName(cameraName));
    return camera ? camera->getImageInfoFromAngularInfoWithResolution(values, resolution) : std::vector<float>();
}

// ---- Feeding: the name as it stands, so the alias is refused -------------------

bool FrameHubPrivate::putImage(
    const std::string& cameraName, const Resolution& resolution, const ColorSpace& colorSpace, const void* data)
{
    Camera* const camera = _findCamera(cameraName);
    return camera && camera->putImage(resolution, colorSpace, data);
}

CameraPreferences FrameHubPrivate::getExpectedImageParameters(const std::string& cameraName) const
{
    Camera* const camera = _findCamera(cameraName);
    if (!camera)
        return CameraPreferences(CameraPreferences::defaultResolution, CameraPreferences::defaultColorSpace, 0);
    return camera->getExpectedImageParameters();
}

} // namespace FrameHub
} // namespace Kelmo
