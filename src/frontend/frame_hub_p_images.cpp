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
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMonostream(name))
        return Buffer();
    return _getImage(_subscribers.find(name)->second);
}

bool FrameHubPrivate::releaseImage(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMonostream(name))
        return false;
    return _releaseImage(_subscribers.find(name)->second);
}

FrameHubPrivate::Buffer FrameHubPrivate::getDirectRawImage(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMonostream(name))
        return Buffer();
    return _getDirectRawImage(_subscribers.find(name)->second);
}

bool FrameHubPrivate::releaseDirectRawImage(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMonostream(name))
        return false;
    return _releaseDirectRawImage(_subscribers.find(name)->second);
}

std::vector<FrameHubPrivate::Buffer> FrameHubPrivate::getImages(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name))
        return std::vector<Buffer>();
    return _getImages(_subscribers.find(name)->second);
}

std::vector<bool> FrameHubPrivate::releaseImages(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name))
        return std::vector<bool>();
    return _releaseImages(_subscribers.find(name)->second);
}

std::vector<FrameHubPrivate::Buffer> FrameHubPrivate::getDirectRawImages(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name))
        return std::vector<Buffer>();
    return _getDirectRawImages(_subscribers.find(name)->second);
}

std::vector<bool> FrameHubPrivate::releaseDirectRawImages(const std::string& name)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name))
        return std::vector<bool>();
    return _releaseDirectRawImages(_subscribers.find(name)->second);
}

// ---- Workers -------------------------------------------------------------------

FrameHubPrivate::Buffer FrameHubPrivate::_getImage(SubscriberPtr subscriber)
{
    return _getMonoImage(subscriber, false, "_getImage", "_getImage(");
}

FrameHubPrivate::Buffer FrameHubPrivate::_getDirectRawImage(SubscriberPtr subscriber)
{
    // The plural in the text is how this record has always read.
    return _getMonoImage(subscriber, true, "_getDirectRawImage", "_getDirectRawImages(");
}

// Both mono-stream fetches: the first active camera, alias resolved, with a
// missing request repaired from the camera's defaults.
FrameHubPrivate::Buffer FrameHubPrivate::_getMonoImage(
    SubscriberPtr subscriber, bool raw, const char* worker, const char* logPrefix)
{
    if (!_checkSubscriberIsNotProcessing(subscriber->getName()))
        return Buffer();
    const std::string realName = _getRealCameraName(subscriber->getActiveCameraList().at(0));
    const CameraPtr camera = _findCamera(realName);
    if (!camera)
        return Buffer(); // an alias with no camera registered
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

std::vector<FrameHubPrivate::Buffer> FrameHubPrivate::_getImages(SubscriberPtr subscriber)
{
    if (!_checkSubscriberIsNotProcessing(subscriber->getName()))
        return std::vector<Buffer>();
    std::vector<Buffer> result;
    for (const std::string& cameraName : subscriber->getActiveCameraList()) {
        const CameraPtr camera = _camera(cameraName);
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

std::vector<FrameHubPrivate::Buffer> FrameHubPrivate::_getDirectRawImages(SubscriberPtr subscriber)
{
    if (!_checkSubscriberIsNotProcessing(subscriber->getName()))
        return std::vector<Buffer>();
    std::vector<Buffer> result;
    for (const std::string& cameraName : subscriber->getActiveCameraList()) {
        boost::shared_ptr<CameraPreferences> preferences = subscriber->getCameraPreferences(cameraName);
        // Every listed camera has a request on file; no repair on this path.
        const CameraPtr camera = _camera(cameraName);
        Buffer buffer = preferences && camera ? camera->getDirectRawImageBuffer(*preferences) : Buffer();
        if (buffer)
            subscriber->setImageBuffer(cameraName, buffer);
        result.push_back(buffer);
    }
    return result;
}

std::vector<bool> FrameHubPrivate::_releaseAll(SubscriberPtr subscriber)
{
    std::vector<bool> results;
    Subscriber::ImageBufferMap& held = subscriber->getImageBufferMap();
    for (const auto& entry : held) {
        const CameraPtr camera = _camera(entry.first);
        results.push_back(camera && camera->releaseImageBuffer(entry.second));
    }
    held.clear();
    return results;
}

bool FrameHubPrivate::_releaseImage(SubscriberPtr subscriber)
{
    const std::vector<bool> results = _releaseAll(subscriber);
    return std::find(results.begin(), results.end(), false) == results.end();
}

bool FrameHubPrivate::_releaseDirectRawImage(SubscriberPtr subscriber) { return _releaseImage(subscriber); }

std::vector<bool> FrameHubPrivate::_releaseImages(SubscriberPtr subscriber)
{
    std::vector<bool> results = _releaseAll(subscriber);
    if (results.empty())
        results.assign(subscriber->getActiveCameraList().size(), true);
    return results;
}

std::vector<bool> FrameHubPrivate::_releaseDirectRawImages(SubscriberPtr subscriber) { return _releaseAll(subscriber); }

} // namespace FrameHub
} // namespace Kelmo
