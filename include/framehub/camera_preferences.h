#ifndef FRAMEHUB_CAMERA_PREFERENCES_H
#define FRAMEHUB_CAMERA_PREFERENCES_H

#include <framehub/frame_hub_type.h>

#include <atomic>

namespace Kelmo {
namespace FrameHub {

// One capture format: what a subscriber asks for and what a camera runs at.
class CameraPreferences {
public:
    CameraPreferences(const Resolution& resolution, const ColorSpace& colorSpace, int refreshRate);
    CameraPreferences(const CameraPreferences& other);
    CameraPreferences& operator=(const CameraPreferences& other);

    Resolution getResolution() const;
    bool setResolution(const Resolution& resolution);
    ColorSpace getColorSpace() const;
    bool setColorSpace(const ColorSpace& colorSpace);
    int getRefreshRate() const;
    // A negative rate is refused; 0 is accepted.
    bool setRefreshRate(int refreshRate);

    // Together: no format chosen yet.
    static const Resolution defaultResolution;
    static const ColorSpace defaultColorSpace;

private:
    Resolution resolution;
    ColorSpace colorSpace;
    // A subscriber's new rate reaches every request it has on file, also
    // those attached to cameras that read them under their own lock.
    std::atomic<int32_t> refreshRate;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
