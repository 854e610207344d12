#ifndef FRAMEHUB_CAMERA_BUILDER_H
#define FRAMEHUB_CAMERA_BUILDER_H

#include <framehub/frame_hub_type.h>

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

} // namespace FrameHub
} // namespace Kelmo

#endif
