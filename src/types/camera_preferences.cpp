#include <framehub/camera_preferences.h>

#include <limits>

namespace Kelmo {
namespace FrameHub {

const Resolution CameraPreferences::defaultResolution(std::numeric_limits<uint64_t>::max(),
                                                      std::numeric_limits<uint64_t>::max());
const ColorSpace CameraPreferences::defaultColorSpace = COLORSPACE_UNKNOWN;

CameraPreferences::CameraPreferences(const Resolution& res, const ColorSpace& cs, int rate)
    : resolution(res)
    , colorSpace(cs)
    , refreshRate(rate)
{
}

CameraPreferences::CameraPreferences(const CameraPreferences& other)
    : resolution(other.resolution)
    , colorSpace(other.colorSpace)
    , refreshRate(other.refreshRate.load(std::memory_order_relaxed))
{
}

CameraPreferences& CameraPreferences::operator=(const CameraPreferences& other)
{
    resolution = other.resolution;
    colorSpace = other.colorSpace;
    refreshRate.store(other.refreshRate.load(std::memory_order_relaxed), std::memory_order_relaxed);
    return *this;
}

Resolution CameraPreferences::getResolution() const { return resolution; }

bool CameraPreferences::setResolution(const Resolution& res)
{
    resolution = res;
    return true;
}

ColorSpace CameraPreferences::getColorSpace() const { return colorSpace; }

bool CameraPreferences::setColorSpace(const ColorSpace& cs)
{
    colorSpace = cs;
    return true;
}

int CameraPreferences::getRefreshRate() const { return refreshRate.load(std::memory_order_relaxed); }

bool CameraPreferences::setRefreshRate(int rate)
{
    if (rate < 0)
        return false;
    refreshRate.store(rate, std::memory_order_relaxed);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
