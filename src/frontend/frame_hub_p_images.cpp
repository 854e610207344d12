// FrameHubPrivate: the per-frame hand-out and release of images.
#include "frontend/frame_hub_p.h"

#include "camera/camera.h"
#include "frontend/subscriber.h"
#include "types/framehub_log.h"
#include "types/locks.h"

#include <boost/thread/locks.hpp>

#include <algorithm>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub")

// ---- Public: guards, then the worker ----------------------------------------------

FrameHubPrivate::Buffer FrameHubPrivate::getImage(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    const SubscriberPtr* subscriber = _monoSubscriber(name);
    return subscriber ? _getImage(*subscriber) : Buffer();
}

bool FrameHubPrivate::releaseImage(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    const SubscriberPtr* subscriber = _monoSubscriber(name);
    return subscriber ? _releaseImage(*subscriber) : false;
}

FrameHubPrivate::Buffer FrameHubPrivate::getDirectRawImage(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    const SubscriberPtr* subscriber = _monoSubscriber(name);
    return subscriber ? _getDirectRawImage(*subscriber) : Buffer();
}

bool FrameHubPrivate::releaseDirectRawImage(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    const SubscriberPtr* subscriber = _monoSubscriber(name);
    return subscriber ? _releaseDirectRawImage(*subscriber) : false;
}

std::vector<FrameHubPrivate::Buffer> FrameHubPrivate::getImages(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    const SubscriberPtr* subscriber = _multiSubscriber(name);
    return subscriber ? _getImages(*subscriber) : std::vector<Buffer>();
}

std::vector<bool> FrameHubPrivate::releaseImages(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    const SubscriberPtr* subscriber = _multiSubscriber(name);
    return subscriber ? _releaseImages(*subscriber) : std::vector<bool>();
}

std::vector<FrameHubPrivate::Buffer> FrameHubPrivate::getDirectRawImages(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    const SubscriberPtr* subscriber = _multiSubscriber(name);
    return subscriber ? _getDirectRawImages(*subscriber) : std::vector<Buffer>();
}

std::vector<bool> FrameHubPrivate::releaseDirectRawImages(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    const SubscriberPtr* subscriber = _multiSubscriber(name);
    return subscriber ? _releaseDirectRawImages(*subscriber) : std::vector<bool>();
}

// ---- Workers -------------------------------------------------------------------

FrameHubPrivate::Buffer FrameHubPrivate::_getImage(const SubscriberPtr& subscriber)
{
    return _getMonoImage(subscriber, false, "_getImage", "_getImage(");
}

FrameHubPrivate::Buffer FrameHubPrivate::_getDirectRawImage(const SubscriberPtr& subscriber)
{
    // The plural in the text is how this record has always read.
    return _getMonoImage(subscriber, true, "_getDirectRawImage", "_getDirectRawImages(");
}

// Both mono-stream fetches: the first active camera, alias resolved, with a
// missing request repaired from the camera's defaults.
FrameHubPrivate::Buffer FrameHubPrivate::_getMonoImage(
    const SubscriberPtr& subscriber, bool raw, const char* worker, const char* logPrefix)
{
    if (!_isNotProcessing(*subscriber))
        return Buffer();
    const std::string& realName = _realCameraNameOf(*subscriber);
    Camera* const camera = _cameraOf(*subscriber, realName);
    if (!camera) {
        _checkIsCameraIdValid(realName); // its record: an alias with no camera registered
        return Buffer();
    }
    boost::shared_ptr<CameraPreferences> preferences = subscriber->getCameraPreferences(realName);
    if (!preferences) {
        FRAMEHUB_LOG_AS(LEVEL_WARNING, worker)
            << logPrefix << subscriber->getName() << "): can't get preferences for camera " << realName
            << ", preferences will be generated with the default preferences";
        preferences = camera->buildDefaultPreferences();
        subscriber->setCameraPreferences(realName, preferences);
    }
    Buffer buffer;
    if (!raw)
        buffer = camera->getImageBuffer(*preferences);
    else if (camera->isExtraColorSpace(preferences->getColorSpace()))
        buffer = camera->getDirectRawExtraColorSpaceImageBuffer(*preferences);
    else
        buffer = camera->getDirectRawImageBuffer(*preferences);
    if (buffer)
        subscriber->setImageBuffer(realName, buffer);
    return buffer;
}

std::vector<FrameHubPrivate::Buffer> FrameHubPrivate::_getImages(const SubscriberPtr& subscriber)
{
    if (!_isNotProcessing(*subscriber))
        return std::vector<Buffer>();
    std::vector<Buffer> result;
    for (const std::string& cameraName : subscriber->getActiveCameraList()) {
        Camera* const camera = _cameraOf(*subscriber, cameraName);
        if (!camera) { // listed cameras are registered; kept safe all the same
            result.push_back(Buffer());
            continue;
        }
        boost::shared_ptr<CameraPreferences> preferences = subscriber->getCameraPreferences(cameraName);
        if (!preferences) {
            FRAMEHUB_LOG(LEVEL_WARNING) << "_getImages(" << subscriber->getName()
                                        << "):can't get preferences for camera " << cameraName
                                        << ", preferences will be generated with the default preferences";
            preferences = camera->buildDefaultPreferences();
            subscriber->setCameraPreferences(cameraName, preferences);
        }
        Buffer buffer = camera->getImageBuffer(*preferences);
        if (buffer)
            subscriber->setImageBuffer(cameraName, buffer);
        result.push_back(buffer);
    }
    return result;
}

std::vector<FrameHubPrivate::Buffer> FrameHubPrivate::_getDirectRawImages(const SubscriberPtr& subscriber)
{
    if (!_isNotProcessing(*subscriber))
        return std::vector<Buffer>();
    std::vector<Buffer> result;
    for (const std::string& cameraName : subscriber->getActiveCameraList()) {
        boost::shared_ptr<CameraPreferences> preferences = subscriber->getCameraPreferences(cameraName);
        // Every listed camera has a request on file; no repair on this path.
        Camera* const camera = _cameraOf(*subscriber, cameraName);
        Buffer buffer = preferences && camera ? camera->getDirectRawImageBuffer(*preferences) : Buffer();
        if (buffer)
            subscriber->setImageBuffer(cameraName, buffer);
        result.push_back(buffer);
    }
    return result;
}

bool FrameHubPrivate::_releaseHeld(const SubscriberPtr& subscriber, std::vector<bool>* results)
{
    bool all = true;
    for (const auto& entry : subscriber->getImageBufferMap()) {
        Camera* const camera = _cameraOf(*subscriber, entry.first);
        const bool released = camera && camera->releaseImageBuffer(entry.second);
        all = all && released;
        if (results)
            results->push_back(released);
    }
    subscriber->clearImageBuffers();
    return all;
}

bool FrameHubPrivate::_releaseImage(const SubscriberPtr& subscriber) { return _releaseHeld(subscriber, nullptr); }

bool FrameHubPrivate::_releaseDirectRawImage(const SubscriberPtr& subscriber) { return _releaseImage(subscriber); }

std::vector<bool> FrameHubPrivate::_releaseImages(const SubscriberPtr& subscriber)
{
    std::vector<bool> results;
    _releaseHeld(subscriber, &results);
    if (results.empty())
        results.assign(subscriber->getActiveCameraList().size(), true);
    return results;
}

std::vector<bool> FrameHubPrivate::_releaseDirectRawImages(const SubscriberPtr& subscriber)
{
    std::vector<bool> results;
    _releaseHeld(subscriber, &results);
    return results;
}

} // namespace FrameHub
} // namespace Kelmo
