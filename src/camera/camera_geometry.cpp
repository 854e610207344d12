// Camera: linear conversions between angles and image fractions.
#include "camera/camera.h"

#include "types/framehub_log.h"

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camera")

namespace {
bool isPoint(const std::vector<float>& values, const char* operation)
{
    if (values.size() == 2)
        return true;
    FRAMEHUB_LOG_AS(LEVEL_ERROR, operation) << operation << "(): Invalid parameter size\nPlease provide a 2D Point.";
    return false;
}

bool isInfo(const std::vector<float>& values, const char* operation)
{
    if (values.size() == 4)
        return true;
    FRAMEHUB_LOG_AS(LEVEL_ERROR, operation)
        << operation << "(): Invalid parameter size (expected 4, actual " << values.size() << ").";
    return false;
}
} // namespace

FieldOfView Camera::getFieldOfView() const { return _fieldOfView; }

bool Camera::setFieldOfView(const FieldOfView& fieldOfView)
{
    // Written so that NaN fails too.
    if (fieldOfView.horizontal > 0.0f && fieldOfView.vertical > 0.0f) {
        _fieldOfView = fieldOfView;
        return true;
    }
    FRAMEHUB_LOG(LEVEL_ERROR) << "Invalid Field Of View to set";
    return false;
}

// A positive horizontal angle lies towards smaller x, a positive vertical
// angle towards larger y.
std::vector<float> Camera::getImageSizeFromAngularSize(const std::vector<float>& a) const
{
    if (!isPoint(a, "getImageSizeFromAngularSize"))
        return std::vector<float>();
    return { a[0] / _fieldOfView.horizontal, a[1] / _fieldOfView.vertical };
}

std::vector<float> Camera::getImagePositionFromAngularPosition(const std::vector<float>& a) const
{
    if (!isPoint(a, "getImagePositionFromAngularPosition"))
        return std::vector<float>();
    return { -a[0] / _fieldOfView.horizontal + 0.5f, a[1] / _fieldOfView.vertical + 0.5f };
}

std::vector<float> Camera::getAngularPositionFromImagePosition(const std::vector<float>& a) const
{
    if (!isPoint(a, "getAngularPositionFromImagePosition"))
        return std::vector<float>();
    return { -(a[0] - 0.5f) * _fieldOfView.horizontal, (a[1] - 0.5f) * _fieldOfView.vertical };
}

std::vector<float> Camera::getAngularSizeFromImageSize(const std::vector<float>& a) const
{
    if (!isPoint(a, "getAngularSizeFromImageSize"))
        return std::vector<float>();
    if (a[0] < 0.0f || a[0] > 1.0f || a[1] < 0.0f || a[1] > 1.0f) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "getAngularSizeFromImageSize(): Invalid input parameters";
        return std::vector<float>();
    }
    return { a[0] * _fieldOfView.horizontal, a[1] * _fieldOfView.vertical };
}

std::vector<float> Camera::getImageInfoFromAngularInfo(const std::vector<float>& a) const
{
    if (!isInfo(a, "getImageInfoFromAngularInfo"))
        return std::vector<float>();
    std::vector<float> info = getImagePositionFromAngularPosition({ a[0], a[1] });
    const std::vector<float> size = getImageSizeFromAngularSize({ a[2], a[3] });
    info.insert(info.end(), size.begin(), size.end());
    return info;
}

std::vector<float> Camera::getImageInfoFromAngularInfoWithResolution(
    const std::vector<float>& a, const Resolution& resolution) const
{
    if (!isInfo(a, "getImageInfoFromAngularInfoWithResolution"))
        return std::vector<float>();
    if (!isResolutionValid(resolution)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "getImageInfoFromAngularInfoWithResolution(): Invalid resolution (actual "
                                  << resolution.width << "x" << resolution.height << ").";
        return std::vector<float>();
    }
    std::vector<float> info = getImageInfoFromAngularInfo(a);
    const float width = static_cast<float>(resolution.width);
    const float height = static_cast<float>(resolution.height);
    info[0] *= width;
    info[1] *= height;
    info[2] *= width;
    info[3] *= height;
    return info;
}

} // namespace FrameHub
} // namespace Kelmo
