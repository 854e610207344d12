#ifndef FRAMEHUB_SRC_FRONTEND_FRAME_HUB_P_H
#define FRAMEHUB_SRC_FRONTEND_FRAME_HUB_P_H

#include <framehub/frame_hub_type.h>

#include <boost/shared_ptr.hpp>
#include <boost/thread/shared_mutex.hpp>

#include <map>
#include <string>
#include <vector>

namespace Kelmo {
namespace FrameHub {

class Camera;
class Subscriber;

// The spine behind the facade: the subscriber and camera registries and
// their two locks. Wherever both locks are held, _subscribersMutex comes first.
class FrameHubPrivate {
public:
    FrameHubPrivate();
    virtual ~FrameHubPrivate();

    FrameHubPrivate(const FrameHubPrivate&) = delete;
    FrameHubPrivate& operator=(const FrameHubPrivate&) = delete;

    std::string getDefaultActiveCamera() const;
    std::vector<std::string> getSubscribers() const;
    std::vector<std::string> getCameraIndexes() const;

private:
    // The helpers run with the right lock already held and take none.
    std::string _getRealCameraName(const std::string& cameraName) const;
    bool _checkIsSubscriberValid(const std::string& name) const;
    // The three below assume _checkIsSubscriberValid passed under the same lock.
    bool _checkSubscriberIsMonostream(const std::string& name) const;
    bool _checkSubscriberIsMultistream(const std::string& name) const;
    bool _checkSubscriberIsNotProcessing(const std::string& name) const;
    bool _checkIsCameraIdValid(const std::string& cameraName) const;
    std::string _findAvailableSubscriberName(const std::string& name);

    std::string _defaultActiveCamera;
    std::map<std::string, boost::shared_ptr<Subscriber>> _subscribers;
    mutable boost::shared_mutex _subscribersMutex;
    std::map<std::string, boost::shared_ptr<Camera>> _cameras;
    mutable boost::shared_mutex _camerasMutex;

    friend class FrameHubPrivateTestPeer;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
