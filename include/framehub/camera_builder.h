#ifndef FRAMEHUB_CAMERA_BUILDER_H
#define FRAMEHUB_CAMERA_BUILDER_H

#include <framehub/frame_hub_type.h>

#include <boost/shared_ptr.hpp>

#include <set>
#include <string>
#include <vector>

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

// Turns a description into a live camera of the back-end its model names
// ("Simulator2D", "Simulator3D" and whichever back-ends were compiled in).
// The only factory of the library.
class CameraBuilder {
public:
    explicit CameraBuilder(const CameraInfo& info);

    // Never null. Throws Kelmo::KelmoError for an unknown model or an empty
    // set of resolutions, colour spaces or frame rates.
    boost::shared_ptr<Camera> getCamera() const;

    // Every model string this build can make, sorted.
    static std::vector<std::string> models();

private:
    CameraInfo _info;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
