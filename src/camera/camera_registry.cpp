#include "camera/camera_registry.h"

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include <map>

namespace Kelmo {
namespace FrameHub {

namespace {
struct Registry {
    boost::mutex mutex;
    std::map<std::string, CameraFactory> factories; // sorted by model, as models() promises
};

// Built on first use: back-ends register from static initialisers of other
// files, whose order against this one is unspecified.
Registry& registry()
{
    static Registry instance;
    return instance;
}
} // namespace

bool registerCameraModel(const std::string& model, CameraFactory factory)
{
    Registry& r = registry();
    boost::lock_guard<boost::mutex> lock(r.mutex);
    return factory && r.factories.emplace(model, factory).second;
}

CameraFactory findCameraModel(const std::string& model)
{
    Registry& r = registry();
    boost::lock_guard<boost::mutex> lock(r.mutex);
    const auto found = r.factories.find(model);
    return found == r.factories.end() ? nullptr : found->second;
}

std::vector<std::string> registeredCameraModels()
{
    Registry& r = registry();
    boost::lock_guard<boost::mutex> lock(r.mutex);
    std::vector<std::string> models;
    for (const auto& entry : r.factories)
        models.push_back(entry.first);
    return models;
}

} // namespace FrameHub
} // namespace Kelmo
