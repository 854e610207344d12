#ifndef FRAMEHUB_CAMERA_BUILDER_H
#define FRAMEHUB_CAMERA_BUILDER_H

#include <framehub/frame_hub_type.h>

#include <boost/shared_ptr.hpp>

#include <set>
#include <string>

namespace Kelmo {
namespace FrameHub {

// Plain description of a camera; the model string picks the back-end.
class CameraInfo {
public:
    CameraInfo()
        : horizontalFlip(false)
        , verticalFlip(false)
    {
    }

    std::string name;
    std::string model;
    std::string backendArgument;
    FieldOfView fieldOfView;
    bool horizontalFlip;
    bool verticalFlip;
    std::set<Resolution> resolutions;
    std::set<ColorSpace> colorSpaces;
    std::set<int> frameRates;
};

class Camera;

// Turns a description into a live camera of the back-end its model names:
// "Simulator2D" or "Simulator3D". The only factory of the library.
class CameraBuilder {
public:
    explicit CameraBuilder(const CameraInfo& info);

    // Never null. Throws Kelmo::KelmoError for an unknown model or an empty
    // set of resolutions, colour spaces or frame rates.
    boost::shared_ptr<Camera> getCamera() const;

private:
    CameraInfo _info;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
