#include <framehub/camera_builder.h>

#include "camera/camera.h"
#include "simulator/camera_simulator_2d.h"
#include "simulator/camera_simulator_3d.h"
#include "types/framehub_log.h"

#include <kelmoerror/kelmo_error.h>

#include <boost/make_shared.hpp>

namespace Kelmo {
namespace FrameHub {

namespace {
lumo::log::CategoryType logCategory = lumo::log::addCategory("vision.framehub.camerabuilder");

typedef boost::shared_ptr<Camera> (*Factory)(const CameraInfo&);

template <typename Backend>
boost::shared_ptr<Camera> make(const CameraInfo& info)
{
    return boost::make_shared<Backend>(info.name, info.backendArgument);
}

struct Model {
    const char* name;
    Factory factory;
};

// Exact, case-sensitive model names.
const Model kModels[] = {
    { "Simulator2D", &make<CameraSimulator2D> },
    { "Simulator3D", &make<CameraSimulator3D> },
};

// Every camera reads the first and last element of its native sets.
void refuseEmptySet(bool empty, const char* what)
{
    if (!empty)
        return;
    const std::string description = std::string("Empty set of ") + what + " in the camera description";
    FRAMEHUB_LOG_AS(logCategory, 2, "getCamera") << "Can't create camera backend, " << description << ".";
    throw Kelmo::KelmoError("CameraBuilder", "getCamera", description, nullptr, 0);
}
} // namespace

CameraBuilder::CameraBuilder(const CameraInfo& info)
    : _info(info)
{
}

boost::shared_ptr<Camera> CameraBuilder::getCamera() const
{
    Factory factory = nullptr;
    for (const Model& model : kModels)
        if (_info.model == model.name)
            factory = model.factory;
    if (!factory) {
        FRAMEHUB_LOG(logCategory, 2) << "Can't create camera backend,  model \"" << _info.model << "\" unsupported.";
        throw Kelmo::KelmoError("CameraBuilder", "Constructor", "Camera not supported", nullptr, 0);
    }
    refuseEmptySet(_info.resolutions.empty(), "resolutions");
    refuseEmptySet(_info.colorSpaces.empty(), "color spaces");
    refuseEmptySet(_info.frameRates.empty(), "frame rates");

    boost::shared_ptr<Camera> camera = factory(_info);
    camera->setFieldOfView(_info.fieldOfView);
    camera->setDefaultFlip(_info.horizontalFlip, _info.verticalFlip);
    camera->setNativelySupportedResolutions(_info.resolutions);
    camera->setNativelySupportedColorSpaces(_info.colorSpaces);
    camera->setNativelySupportedFrameRates(_info.frameRates);
    return camera;
}

} // namespace FrameHub
} // namespace Kelmo
