#ifndef FRAMEHUB_SRC_CAMERA_CAMERA_REGISTRY_H
#define FRAMEHUB_SRC_CAMERA_CAMERA_REGISTRY_H

#include <framehub/camera_builder.h>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace Kelmo {
namespace FrameHub {

class Camera;

// The table from model string to back-end. Back-ends fill it from their own
// folder at load time, so the builder never names a concrete class.
typedef boost::shared_ptr<Camera> (*CameraFactory)(const CameraInfo& info);

// False when the model is already taken; the first registration stays.
bool registerCameraModel(const std::string& model, CameraFactory factory);
// Null when no back-end registered that exact, case-sensitive model.
CameraFactory findCameraModel(const std::string& model);
// Sorted.
std::vector<std::string> registeredCameraModels();

template <typename Backend> boost::shared_ptr<Camera> makeCamera(const CameraInfo& info)
{
    return boost::make_shared<Backend>(info.name, info.backendArgument);
}

} // namespace FrameHub
} // namespace Kelmo

// One line in a back-end's folder: FRAMEHUB_REGISTER_CAMERA_MODEL("MyModel", CameraMyModel)
#define FRAMEHUB_REGISTER_CAMERA_MODEL(model, Backend)                                                                 \
    namespace {                                                                                                        \
    const bool framehubRegistered##Backend                                                                             \
        = ::Kelmo::FrameHub::registerCameraModel((model), &::Kelmo::FrameHub::makeCamera<Backend>);                    \
    }

#endif
