#include "frame_hub_p.h"

#include "subscriber.h"

#include "../types/framehub_log.h"

#include <boost/thread/locks.hpp>

#include <sstream>

namespace Kelmo {
namespace FrameHub {

namespace {
lumo::log::CategoryType logCategory = lumo::log::addCategory("vision.framehub");

const char* const kDefaultCameraAlias = "Default";
} // namespace

FrameHubPrivate::FrameHubPrivate() {}

FrameHubPrivate::~FrameHubPrivate() {}

std::string FrameHubPrivate::getDefaultActiveCamera() const
{
    return _defaultActiveCamera;
}

std::vector<std::string> FrameHubPrivate::getSubscribers() const
{
    boost::shared_lock<boost::shared_mutex> lock(_subscribersMutex);
    std::vector<std::string> names;
    names.reserve(_subscribers.size());
    for (const auto& entry : _subscribers)
        names.push_back(entry.first);
    return names;
}

std::vector<std::string> FrameHubPrivate::getCameraIndexes() const
{
    boost::shared_lock<boost::shared_mutex> lock(_camerasMutex);
    std::vector<std::string> names;
    names.reserve(_cameras.size());
    // Keys are the cameras' own names.
    for (const auto& entry : _cameras)
        names.push_back(entry.first);
    return names;
}

std::string FrameHubPrivate::_getRealCameraName(const std::string& cameraName) const
{
    return cameraName == kDefaultCameraAlias ? _defaultActiveCamera : cameraName;
}

bool FrameHubPrivate::_checkIsSubscriberValid(const std::string& name) const
{
    if (_subscribers.find(name) != _subscribers.end())
        return true;
    FRAMEHUB_LOG(logCategory, 2) << "Subscriber \"" << name
                                 << "\" not found. Please verify that you are subscribed to FrameHub.";
    return false;
}

bool FrameHubPrivate::_checkSubscriberIsMonostream(const std::string& name) const
{
    if (!_subscribers.find(name)->second->isMultiStream())
        return true;
    FRAMEHUB_LOG(logCategory, 2) << "Only mono stream subscribers can call this method. Please verify you have "
                                    "subscribed to FrameHub using subscribeCamera().";
    return false;
}

bool FrameHubPrivate::_checkSubscriberIsMultistream(const std::string& name) const
{
    if (_subscribers.find(name)->second->isMultiStream())
        return true;
    FRAMEHUB_LOG(logCategory, 2) << "Only multi stream subscribers can call this method. Please verify you have "
                                    "subscribed to FrameHub using subscribeCameras().";
    return false;
}

bool FrameHubPrivate::_checkSubscriberIsNotProcessing(const std::string& name) const
{
    if (!_subscribers.find(name)->second->isProcessing())
        return true;
    FRAMEHUB_LOG(logCategory, 2) << "Subscriber \"" << name
                                 << "\" is still processing. Please verify you have release previous image(s).";
    return false;
}

bool FrameHubPrivate::_checkIsCameraIdValid(const std::string& cameraName) const
{
    if (_cameras.find(cameraName) != _cameras.end())
        return true;
    FRAMEHUB_LOG(logCategory, 2) << "Camera \"" << cameraName << "\" not found. Please verify the camera index.";
    return false;
}

std::string FrameHubPrivate::_findAvailableSubscriberName(const std::string& name)
{
    // The sequence tests _0 twice, then _1 to _6: seven instances of a stem,
    // and the message of the eighth says 6. Kept exactly so.
    int counter = 0;
    std::ostringstream candidate;
    candidate << name << "_" << counter;
    while (_subscribers.find(candidate.str()) != _subscribers.end()) {
        if (counter == 7) {
            FRAMEHUB_LOG(logCategory, 2) << "Could not subscribe module: " << name << "\n6 instances of: " << name
                                         << " have already subscribed to the frame hub.\n"
                                            "Please unsubscribe before subscribing again to this module.";
            return std::string();
        }
        candidate.str(std::string());
        candidate << name << "_" << counter;
        ++counter;
    }
    if (counter != 0)
        FRAMEHUB_LOG(logCategory, 5) << "Subscriber name " << name << " already in use.\nName id changed to \""
                                     << candidate.str() << "\"";
    return candidate.str();
}

} // namespace FrameHub
} // namespace Kelmo
