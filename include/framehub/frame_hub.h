#ifndef FRAMEHUB_FRAME_HUB_H
#define FRAMEHUB_FRAME_HUB_H

#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>
#include <framehub/image_buffer.h>

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace Kelmo {
namespace FrameHub {

class FrameHubPrivate;

// What a client sees: a facade that forwards every call to its private part.
class FrameHub {
public:
    FrameHub();
    virtual ~FrameHub();

    // Name of the camera that the alias "Default" stands for; empty until
    // a camera is registered.
    std::string getDefaultActiveCamera() const;
    // Generated names of all subscribers, in plain string order.
    std::vector<std::string> getSubscribers() const;
    // Names of all registered cameras, in plain string order.
    std::vector<std::string> getCameraIndexes() const;
    // Always true.
    bool isCamera3DPlugged(bool);

private:
    boost::shared_ptr<FrameHubPrivate> _private;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
