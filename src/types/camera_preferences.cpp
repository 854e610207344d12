#include <framehub/camera_preferences.h>

#include <limits>

namespace Kelmo {
namespace FrameHub {

namespace {
const std::memory_order relaxed = std::memory_order_relaxed;
} // namespace

const Resolution CameraPreferences::defaultResolution(
    std::numeric_limits<uint64_t>::max(), std::numeric_limits<uint64_t>::max());
const ColorSpace CameraPreferences::defaultColorSpace = COLORSPACE_UNKNOWN;

CameraPreferences::CameraPreferences(const Resolution& res, const ColorSpace& cs, int rate)
    : width(res.width)
    , height(res.height)
    , colorSpace(cs)
    , refreshRate(rate)
{
}

CameraPreferences::CameraPreferences(const CameraPreferences& other)
    : width(other.width.load(relaxed))
    , height(other.height.load(relaxed))
    , colorSpace(other.colorSpace.load(relaxed))
    , refreshRate(other.refreshRate.load(relaxed))
{
}

CameraPreferences& CameraPreferences::operator=(const CameraPreferences& other)
{
    width.store(other.width.load(relaxed), relaxed);
    height.store(other.height.load(relaxed), relaxed);
    colorSpace.store(other.colorSpace.load(relaxed), relaxed);
    refreshRate.store(other.refreshRate.load(relaxed), relaxed);
    return *this;
}

Resolution CameraPreferences::getResolution() const { return Resolution(width.load(relaxed), height.load(relaxed)); }

bool CameraPreferences::setResolution(const Resolution& res)
{
    width.store(res.width, relaxed);
    height.store(res.height, relaxed);
    return true;
}

ColorSpace CameraPreferences::getColorSpace() const { return static_cast<ColorSpace>(colorSpace.load(relaxed)); }

bool CameraPreferences::setColorSpace(const ColorSpace& cs)
{
    colorSpace.store(cs, relaxed);
    return true;
}

int CameraPreferences::getRefreshRate() const { return refreshRate.load(relaxed); }

bool CameraPreferences::setRefreshRate(int rate)
{
    if (rate < 0)
        return false;
    refreshRate.store(rate, relaxed);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
