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
    // Atomic fields: a request is attached to a camera, which reads it under
    // its own lock, while the hub may rewrite it from a client's thread (a
    // new rate for all of a subscriber's requests, a request moved with its
    // subscriber). Each field is read and written whole; a size read during
    // a rewrite may pair the new width with the old height until the next
    // negotiation, which reads it again.
    std::atomic<uint64_t> width;
    std::atomic<uint64_t> height;
    std::atomic<int> colorSpace;
    std::atomic<int32_t> refreshRate;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
