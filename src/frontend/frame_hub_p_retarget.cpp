// FrameHubPrivate: reading and changing what a subscriber asks for, and
// moving the default camera.
#include "frontend/frame_hub_p.h"

#include "camera/camera.h"
#include "frontend/subscriber.h"
#include "types/framehub_log.h"
#include "types/locks.h"

#include <boost/make_shared.hpp>
#include <boost/thread/locks.hpp>

#include <algorithm>
#include <limits>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub")

namespace {

const Resolution kNoResolution(std::numeric_limits<uint64_t>::max(), std::numeric_limits<uint64_t>::max());

bool hasDuplicates(std::vector<std::string> names)
{
    std::sort(names.begin(), names.end());
    return std::adjacent_find(names.begin(), names.end()) != names.end();
}
} // namespace

// ---- Mono-stream ---------------------------------------------------------------

std::string FrameHubPrivate::getActiveCamera(const std::string& name) const
{
    SharedLock lock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMonostream(name))
        return std::string();
    return _getRealCameraName(_subscribers.find(name)->second->getActiveCameraList().at(0));
}

boost::shared_ptr<CameraPreferences> FrameHubPrivate::_monoPreferences(const std::string& name) const
{
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMonostream(name))
        return boost::shared_ptr<CameraPreferences>();
    SubscriberPtr subscriber = _subscribers.find(name)->second;
    return subscriber->getCameraPreferences(_getRealCameraName(subscriber->getActiveCameraList().at(0)));
}

Resolution FrameHubPrivate::getResolution(const std::string& name) const
{
    SharedLock subscribersLock(_subscribersMutex);
    boost::shared_ptr<CameraPreferences> preferences = _monoPreferences(name);
    return preferences ? preferences->getResolution() : kNoResolution;
}

ColorSpace FrameHubPrivate::getColorSpace(const std::string& name) const
{
    SharedLock subscribersLock(_subscribersMutex);
    boost::shared_ptr<CameraPreferences> preferences = _monoPreferences(name);
    return preferences ? preferences->getColorSpace() : COLORSPACE_UNKNOWN;
}

int FrameHubPrivate::getFrameRate(const std::string& name) const
{
    SharedLock lock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name))
        return -1;
    return _subscribers.find(name)->second->getFrameRate();
}

bool FrameHubPrivate::setActiveCamera(const std::string& name, const std::string& cameraName)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkIsCameraIdValid(cameraName) || !_checkSubscriberIsMonostream(name)
        || !_checkSubscriberIsNotProcessing(name))
        return false;
    SubscriberPtr subscriber = _subscribers.find(name)->second;
    const std::string oldName = _getRealCameraName(subscriber->getActiveCameraList().at(0));
    Camera* const oldCamera = _camera(oldName);
    Camera* const newCamera = _camera(cameraName);

    boost::shared_ptr<CameraPreferences> old = subscriber->getCameraPreferences(oldName);
    if (old && newCamera->isValidRequest(*old)) {
        // The request travels with the subscriber.
        boost::shared_ptr<CameraPreferences> moved = subscriber->getCameraPreferences(cameraName);
        if (!moved)
            moved = newCamera->buildDefaultPreferences();
        moved->setRefreshRate(old->getRefreshRate());
        moved->setColorSpace(old->getColorSpace());
        moved->setResolution(old->getResolution());
        subscriber->setCameraPreferences(cameraName, moved);
    } else {
        subscriber->setCameraPreferences(cameraName, newCamera->buildDefaultPreferences());
    }
    if (oldCamera)
        oldCamera->removePreferences(subscriber->getCameraPreferences(oldName));
    newCamera->addPreferences(subscriber->getCameraPreferences(cameraName));
    subscriber->setActiveCameras(std::vector<std::string>(1, cameraName));
    return true;
}

template <typename Value>
bool FrameHubPrivate::_updateMono(const std::string& name, const Value& value,
    bool (Camera::*update)(boost::shared_ptr<CameraPreferences>, const Value&))
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMonostream(name) || !_checkSubscriberIsNotProcessing(name))
        return false;
    SubscriberPtr subscriber = _subscribers.find(name)->second;
    const std::string realName = _getRealCameraName(subscriber->getActiveCameraList().at(0));
    Camera* const camera = _findCamera(realName);
    return camera && ((*camera).*update)(subscriber->getCameraPreferences(realName), value);
}

bool FrameHubPrivate::setResolution(const std::string& name, const Resolution& resolution)
{
    return _updateMono(name, resolution, &Camera::updateResolutionPreferences);
}

bool FrameHubPrivate::setColorSpace(const std::string& name, const ColorSpace& colorSpace)
{
    return _updateMono(name, colorSpace, &Camera::updateColorSpacePreferences);
}

bool FrameHubPrivate::setFrameRate(const std::string& name, int frameRate)
{
    SharedLock subscribersLock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name))
        return false;
    SubscriberPtr subscriber = _subscribers.find(name)->second;
    // A multi-stream subscriber whose list was emptied has no first camera.
    if (subscriber->getActiveCameraList().empty())
        return false;
    const std::string realName = _getRealCameraName(subscriber->getActiveCameraList().front());
    Camera* const camera = _findCamera(realName);
    if (!camera || !camera->updateFrameRatePreferences(subscriber->getCameraPreferences(realName), frameRate))
        return false;
    return subscriber->setFrameRate(frameRate);
}

// ---- Multi-stream --------------------------------------------------------------

std::vector<std::string> FrameHubPrivate::getActiveCameras(const std::string& name) const
{
    SharedLock lock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name))
        return std::vector<std::string>();
    return _subscribers.find(name)->second->getActiveCameraList();
}

std::vector<Resolution> FrameHubPrivate::getResolutions(const std::string& name) const
{
    SharedLock lock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name))
        return std::vector<Resolution>();
    SubscriberPtr subscriber = _subscribers.find(name)->second;
    std::vector<Resolution> result;
    for (const std::string& cameraName : subscriber->getActiveCameraList()) {
        boost::shared_ptr<CameraPreferences> preferences = subscriber->getCameraPreferences(cameraName);
        result.push_back(preferences ? preferences->getResolution() : kNoResolution);
    }
    return result;
}

std::vector<ColorSpace> FrameHubPrivate::getColorSpaces(const std::string& name) const
{
    SharedLock lock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name))
        return std::vector<ColorSpace>();
    SubscriberPtr subscriber = _subscribers.find(name)->second;
    std::vector<ColorSpace> result;
    for (const std::string& cameraName : subscriber->getActiveCameraList()) {
        boost::shared_ptr<CameraPreferences> preferences = subscriber->getCameraPreferences(cameraName);
        result.push_back(preferences ? preferences->getColorSpace() : COLORSPACE_UNKNOWN);
    }
    return result;
}

std::vector<bool> FrameHubPrivate::setActiveCameras(
    const std::string& name, const std::vector<std::string>& cameraNames)
{
    SharedLock lock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name))
        return std::vector<bool>();
    if (hasDuplicates(cameraNames)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "setActiveCameras(" << name
                                  << "): Invalid input parameters, using several time the same camera is "
                                     "forbidden.";
        return std::vector<bool>();
    }
    if (!_checkSubscriberIsNotProcessing(name))
        return std::vector<bool>();
    std::vector<Camera*> cameras;
    for (const std::string& cameraName : cameraNames) {
        cameras.push_back(_findCamera(cameraName));
        if (!cameras.back()) {
            FRAMEHUB_LOG(LEVEL_ERROR) << "Camera " << cameraName << " is invalid.";
            return std::vector<bool>(cameraNames.size(), false);
        }
    }
    SubscriberPtr subscriber = _subscribers.find(name)->second;
    for (const std::string& cameraName : subscriber->getActiveCameraList())
        if (Camera* const camera = _camera(cameraName))
            camera->removePreferences(subscriber->getCameraPreferences(cameraName));
    std::vector<bool> result;
    for (size_t i = 0; i < cameraNames.size(); ++i) {
        const std::string& cameraName = cameraNames[i];
        Camera* const camera = cameras[i];
        // A camera the subscriber knows gets back the request it had.
        if (!subscriber->getCameraPreferences(cameraName))
            subscriber->setCameraPreferences(cameraName, camera->buildDefaultPreferences());
        result.push_back(camera->addPreferences(subscriber->getCameraPreferences(cameraName)));
    }
    subscriber->setActiveCameras(cameraNames);
    return result;
}

template <typename Value>
std::vector<bool> FrameHubPrivate::_setEach(const std::string& name, const std::vector<Value>& values,
    const char* operation, bool (Camera::*update)(boost::shared_ptr<CameraPreferences>, const Value&))
{
    SharedLock lock(_subscribersMutex);
    if (!_checkIsSubscriberValid(name) || !_checkSubscriberIsMultistream(name)
        || !_checkSubscriberIsNotProcessing(name))
        return std::vector<bool>();
    SubscriberPtr subscriber = _subscribers.find(name)->second;
    const std::vector<std::string>& active = subscriber->getActiveCameraList();
    if (values.size() != active.size()) {
        // "resolutions" in both texts, as they have always read.
        FRAMEHUB_LOG_AS(LEVEL_ERROR, operation)
            << operation << "(" << name
            << "): Could not set resolutions.\nWrong size, parameters size: " << values.size()
            << " expected size: " << active.size();
        return std::vector<bool>();
    }
    std::vector<bool> result;
    for (size_t i = 0; i < active.size(); ++i) {
        Camera* const camera = _camera(active[i]);
        result.push_back(camera && ((*camera).*update)(subscriber->getCameraPreferences(active[i]), values[i]));
    }
    return result;
}

std::vector<bool> FrameHubPrivate::setResolutions(const std::string& name, const std::vector<Resolution>& resolutions)
{
    return _setEach(name, resolutions, "setResolutions", &Camera::updateResolutionPreferences);
}

std::vector<bool> FrameHubPrivate::setColorSpaces(const std::string& name, const std::vector<ColorSpace>& colorSpaces)
{
    return _setEach(name, colorSpaces, "setColorSpaces", &Camera::updateColorSpacePreferences);
}

// ---- The default camera ----------------------------------------------------------

bool FrameHubPrivate::setDefaultActiveCamera(const std::string& cameraName)
{
    ExclusiveLock subscribersLock(_subscribersMutex);
    Camera* const newCamera = _findCamera(cameraName);
    if (!newCamera)
        return false;
    const std::string oldName = getDefaultActiveCamera();
    Camera* const oldCamera = _camera(oldName);

    for (const auto& entry : _subscribers) {
        SubscriberPtr subscriber = entry.second;
        // Range-tested on purpose: an emptied list ends the walk with out_of_range.
        if (subscriber->getActiveCameraList().at(0) != "Default")
            continue;
        boost::shared_ptr<CameraPreferences> old = subscriber->getCameraPreferences(oldName);
        if (oldCamera)
            oldCamera->removePreferences(old);
        if (!subscriber->getCameraPreferences(cameraName)) {
            if (!old) {
                FRAMEHUB_LOG(LEVEL_FATAL)
                    << "setActiveCamera(" << cameraName << "): Internal error, Frame Hub may be corrupted.";
                return false;
            }
            if (newCamera->isValidRequest(*old))
                subscriber->setCameraPreferences(cameraName,
                    boost::make_shared<CameraPreferences>(
                        old->getResolution(), old->getColorSpace(), old->getRefreshRate()));
            else
                subscriber->setCameraPreferences(cameraName, newCamera->buildDefaultPreferences());
        }
        newCamera->addPreferences(subscriber->getCameraPreferences(cameraName));
    }
    _setDefaultActiveCamera(cameraName);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
