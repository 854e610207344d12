#ifndef FRAMEHUB_TESTS_HUB_PEER_H
#define FRAMEHUB_TESTS_HUB_PEER_H

#include "fake_camera.h"

#include "frontend/frame_hub_p.h"
#include "frontend/subscriber.h"

#include <boost/make_shared.hpp>

namespace Kelmo {
namespace FrameHub {

struct NamedCamera : FakeCamera {
    explicit NamedCamera(const std::string& name) { _name = name; }
};

// Reaches the private registry so that the frame can be tested before the
// cameras exist.
class FrameHubPrivateTestPeer {
public:
    FrameHubPrivate hub;

    std::string subscribe(const std::string& stem)
    {
        std::string name = hub._findAvailableSubscriberName(stem);
        if (!name.empty())
            hub._subscribers[name] = boost::make_shared<Subscriber>(name);
        return name;
    }
    Subscriber& record(const std::string& name) { return *hub._subscribers.at(name); }
    void unsubscribe(const std::string& name) { hub._subscribers.erase(name); }
    static std::vector<boost::shared_ptr<Camera>> cameras(FrameHubPrivate& hub)
    {
        std::vector<boost::shared_ptr<Camera>> out;
        for (const auto& entry : hub._cameraRegistry())
            out.push_back(entry.second);
        return out;
    }
    void registerCamera(const std::string& name) { hub._publishCamera(boost::make_shared<NamedCamera>(name)); }
    std::string realName(const std::string& name) const { return hub._getRealCameraName(name); }
    bool subscriberValid(const std::string& n) const { return hub._checkIsSubscriberValid(n); }
    bool monostream(const std::string& n) const { return hub._checkSubscriberIsMonostream(n); }
    bool multistream(const std::string& n) const { return hub._checkSubscriberIsMultistream(n); }
    bool notProcessing(const std::string& n) const { return hub._checkSubscriberIsNotProcessing(n); }
    bool cameraValid(const std::string& n) const { return hub._checkIsCameraIdValid(n); }
};

} // namespace FrameHub
} // namespace Kelmo

#endif
