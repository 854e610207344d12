// FrameHubPrivate: registries, guards, name generation, subscribing and
// camera registration.
#include "frontend/frame_hub_p.h"

#include "camera/camera.h"
#include "frontend/subscriber.h"
#include "types/framehub_log.h"
#include "types/locks.h"

#include <boost/make_shared.hpp>
#include <boost/thread/locks.hpp>

#include <algorithm>
#include <sstream>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub")

namespace {
const char kDefaultCameraAlias[] = "Default";

// On every fetch: the length rules out most names before any comparison.
bool isDefaultAlias(const std::string& name)
{
    return name.size() == sizeof(kDefaultCameraAlias) - 1 && name.compare(kDefaultCameraAlias) == 0;
}

} // namespace

FrameHubPrivate::FrameHubPrivate()
{
    _cameraMaps.emplace_back(new CameraMap);
    _cameras.store(_cameraMaps.back().get());
}

FrameHubPrivate::~FrameHubPrivate() { }

std::string FrameHubPrivate::getDefaultActiveCamera() const
{
    std::lock_guard<std::mutex> lock(_defaultActiveCameraMutex);
    return _defaultActiveCamera;
}

void FrameHubPrivate::_setDefaultActiveCamera(const std::string& cameraName)
{
    std::lock_guard<std::mutex> lock(_defaultActiveCameraMutex);
    _defaultActiveCamera = cameraName;
}

std::vector<std::string> FrameHubPrivate::getSubscribers() const
{
    SharedLock lock(_subscribersMutex);
    std::vector<std::string> names;
    names.reserve(_subscribers.size());
    for (const auto& entry : _subscribers)
        names.push_back(entry.first);
    return names;
}

std::vector<std::string> FrameHubPrivate::getCameraIndexes() const
{
    const CameraMap& cameras = _cameraRegistry();
    std::vector<std::string> names;
    names.reserve(cameras.size());
    for (const auto& entry : cameras)
        names.push_back(entry.second->getName());
    return names;
}

// ---- Helpers -----------------------------------------------------------------

std::string FrameHubPrivate::_getRealCameraName(const std::string& cameraName) const
{
    return isDefaultAlias(cameraName) ? getDefaultActiveCamera() : cameraName;
}

const std::string& FrameHubPrivate::_realCameraNameOf(Subscriber& subscriber) const
{
    const std::string& listed = subscriber.getActiveCameraList().at(0);
    if (!isDefaultAlias(listed))
        return listed;
    std::lock_guard<std::mutex> lock(_defaultActiveCameraMutex);
    return subscriber.resolveAlias(_defaultActiveCamera);
}

const FrameHubPrivate::CameraMap& FrameHubPrivate::_cameraRegistry() const
{
    return *_cameras.load(std::memory_order_acquire);
}

Camera* FrameHubPrivate::_camera(const std::string& cameraName) const
{
    const CameraMap& cameras = _cameraRegistry();
    const CameraMap::const_iterator found = cameras.find(cameraName);
    return found == cameras.end() ? nullptr : found->second.get();
}

Camera* FrameHubPrivate::_cameraOf(Subscriber& subscriber, const std::string& cameraName) const
{
    if (Camera* const known = subscriber.knownCamera(cameraName))
        return known;
    Camera* const camera = _camera(cameraName);
    if (camera)
        subscriber.rememberCamera(cameraName, camera);
    return camera;
}

Camera* FrameHubPrivate::_findCamera(const std::string& cameraName) const
{
    Camera* camera = _camera(cameraName);
    if (!camera)
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "_checkIsCameraIdValid")
            << "Camera \"" << cameraName << "\" not found. Please verify the camera index.";
    return camera;
}

bool FrameHubPrivate::_publishCamera(const CameraPtr& camera)
{
    {
        std::lock_guard<std::mutex> lock(_camerasMutex);
        const CameraMap& current = _cameraRegistry();
        if (current.count(camera->getName()))
            return false;
        std::unique_ptr<CameraMap> grown(new CameraMap(current));
        grown->insert(std::make_pair(camera->getName(), camera));
        _cameras.store(grown.get(), std::memory_order_release);
        _cameraMaps.emplace_back(std::move(grown));
    }
    // Only after the camera can be found, so that the alias never names a
    // camera that is not there yet.
    std::lock_guard<std::mutex> lock(_defaultActiveCameraMutex);
    if (_defaultActiveCamera.empty())
        _defaultActiveCamera = camera->getName();
    return true;
}

const FrameHubPrivate::SubscriberPtr* FrameHubPrivate::_findSubscriber(const std::string& name) const
{
    const auto found = _subscribers.find(name);
    if (found != _subscribers.end())
        return &found->second;
    FRAMEHUB_LOG_AS(LEVEL_ERROR, "_checkIsSubscriberValid")
        << "Subscriber \"" << name << "\" not found. Please verify that you are subscribed to FrameHub.";
    return nullptr;
}

const FrameHubPrivate::SubscriberPtr* FrameHubPrivate::_monoSubscriber(const std::string& name) const
{
    const SubscriberPtr* subscriber = _findSubscriber(name);
    return subscriber && _isMonostream(**subscriber) ? subscriber : nullptr;
}

const FrameHubPrivate::SubscriberPtr* FrameHubPrivate::_multiSubscriber(const std::string& name) const
{
    const SubscriberPtr* subscriber = _findSubscriber(name);
    return subscriber && _isMultistream(**subscriber) ? subscriber : nullptr;
}

bool FrameHubPrivate::_isMonostream(Subscriber& subscriber) const
{
    if (!subscriber.isMultiStream())
        return true;
    FRAMEHUB_LOG_AS(LEVEL_ERROR, "_checkSubscriberIsMonostream")
        << "Only mono stream subscribers can call this method. Please verify you have "
           "subscribed to FrameHub using subscribeCamera().";
    return false;
}

bool FrameHubPrivate::_isMultistream(Subscriber& subscriber) const
{
    if (subscriber.isMultiStream())
        return true;
    FRAMEHUB_LOG_AS(LEVEL_ERROR, "_checkSubscriberIsMultistream")
        << "Only multi stream subscribers can call this method. Please verify you have "
           "subscribed to FrameHub using subscribeCameras().";
    return false;
}

bool FrameHubPrivate::_isNotProcessing(Subscriber& subscriber) const
{
    if (!subscriber.isProcessing())
        return true;
    FRAMEHUB_LOG_AS(LEVEL_ERROR, "_checkSubscriberIsNotProcessing")
        << "Subscriber \"" << subscriber.getName()
        << "\" is still processing. Please verify you have release previous image(s).";
    return false;
}

bool FrameHubPrivate::_checkIsSubscriberValid(const std::string& name) const { return _findSubscriber(name); }

bool FrameHubPrivate::_checkSubscriberIsMonostream(const std::string& name) const
{
    return _isMonostream(*_subscribers.find(name)->second);
}

bool FrameHubPrivate::_checkSubscriberIsMultistream(const std::string& name) const
{
    return _isMultistream(*_subscribers.find(name)->second);
}

bool FrameHubPrivate::_checkSubscriberIsNotProcessing(const std::string& name) const
{
    return _isNotProcessing(*_subscribers.find(name)->second);
}

bool FrameHubPrivate::_checkIsCameraIdValid(const std::string& cameraName) const
{
    return static_cast<bool>(_findCamera(cameraName));
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
            FRAMEHUB_LOG(LEVEL_ERROR) << "Could not subscribe module: " << name << "\n6 instances of: " << name
                                      << " have already subscribed to the frame hub.\n"
                                         "Please unsubscribe before subscribing again to this module.";
            return std::string();
        }
        candidate.str(std::string());
        candidate << name << "_" << counter;
        ++counter;
    }
    if (counter != 0)
        FRAMEHUB_LOG(LEVEL_VERBOSE) << "Subscriber name " << name << " already in use.\nName id changed to \""
                                    << candidate.str() << "\"";
    return candidate.str();
}

// ---- Subscribing ---------------------------------------------------------------

bool FrameHubPrivate::_validateRequest(
    const std::string& name, Camera* camera, CameraPreferences& request, const char* function) const
{
    if (camera->isValidRequest(request))
        return true;
    const std::string prefix = "Can't add subscriber " + name + " to Frame Hub\n";
    FRAMEHUB_LOG_AS(LEVEL_WARNING, function) << prefix
                                             << "Some camera parameter values are not supported.\n"
                                                "Try to change the camera parameter requested automatically...";
    if (camera->updateRequestToValidRequest(request))
        return true;
    FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << prefix
                                           << "Some camera parameter values are not supported.\n"
                                              "You must change the camera parameter requested.";
    return false;
}

std::string FrameHubPrivate::subscribeCamera(const std::string& name, const std::string& cameraName,
    const Resolution& resolution, const ColorSpace& colorSpace, int frameRate)
{
    UpgradeLock subscribersLock(_subscribersMutex);
    // Under the lock that setDefaultActiveCamera holds uniquely: the request
    // goes to the camera the alias names until the subscriber is filed.
    const std::string realName = _getRealCameraName(cameraName);

    const std::string prefix = "Can't add subscriber " + name + " to Frame Hub\n";
    Camera* camera = _camera(realName);
    if (!camera) {
        FRAMEHUB_LOG(LEVEL_ERROR) << prefix << "Camera index " << realName
                                  << " is invalid.\nPlease change the camera index requested.";
        return std::string();
    }
    boost::shared_ptr<CameraPreferences> request
        = boost::make_shared<CameraPreferences>(resolution, colorSpace, frameRate);
    if (!_validateRequest(name, camera, *request, __func__))
        return std::string();

    std::string generated = _findAvailableSubscriberName(name);
    if (generated.empty())
        return std::string();
    SubscriberPtr subscriber = boost::make_shared<Subscriber>(generated);
    subscriber->setCameraPreferences(realName, request);
    // The alias stays in the list: the subscriber follows the default camera.
    subscriber->setActiveCameras(std::vector<std::string>(1, cameraName));
    subscriber->setFrameRate(request->getRefreshRate());
    {
        RaisedLock raised(subscribersLock);
        if (!_subscribers.insert(std::make_pair(generated, subscriber)).second) {
            FRAMEHUB_LOG(LEVEL_ERROR) << "Can't add subscriber \"" << generated << "\" to FrameHub.";
            return std::string();
        }
    }
    camera->addPreferences(request);

    const Resolution r = request->getResolution();
    FRAMEHUB_LOG(LEVEL_VERBOSE) << "Registered subscriber \"" << name << "\"\nwith active camera: " << realName
                                << ", resolution: " << r.width << "x" << r.height
                                << ", colorspace: " << getColorSpaceName(request->getColorSpace())
                                << ", framerate: " << request->getRefreshRate();
    return generated;
}

std::string FrameHubPrivate::subscribeCameras(const std::string& name, const std::vector<std::string>& cameraNames,
    const std::vector<Resolution>& resolutions, const std::vector<ColorSpace>& colorSpaces, int frameRate)
{
    UpgradeLock subscribersLock(_subscribersMutex);

    const std::string prefix = "Can't add subscriber " + name + " to Frame Hub.\n";
    if (name.empty() || cameraNames.empty() || resolutions.empty() || colorSpaces.empty()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << prefix << "Some input parameters are empty.\nPlease verify parameters";
        return std::string();
    }
    std::vector<std::string> distinct(cameraNames);
    std::sort(distinct.begin(), distinct.end());
    distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
    if (distinct.size() < cameraNames.size()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "subscribeCameras(): " << prefix << "Invalid input parameters, list contains "
                                  << cameraNames.size() << " elements but only " << distinct.size()
                                  << " different elements (using several time the same camera is forbidden).\n"
                                     "Please correct camera indexes list.";
        return std::string();
    }
    if (resolutions.size() != cameraNames.size() || colorSpaces.size() != cameraNames.size()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << prefix << "Parameters list don't have the same size.Please verify parameters";
        return std::string();
    }

    // Every check comes before the first change.
    std::vector<boost::shared_ptr<CameraPreferences>> requests;
    std::vector<Camera*> cameras;
    for (size_t i = 0; i < cameraNames.size(); ++i) {
        cameras.push_back(_camera(cameraNames[i]));
        if (!cameras.back()) {
            FRAMEHUB_LOG(LEVEL_ERROR) << prefix << "Camera index " << cameraNames[i]
                                      << " is invalid.\nPlease change the camera index requested.";
            return std::string();
        }
        boost::shared_ptr<CameraPreferences> request
            = boost::make_shared<CameraPreferences>(resolutions[i], colorSpaces[i], frameRate);
        if (!_validateRequest(name, cameras[i], *request, __func__))
            return std::string();
        requests.push_back(request);
    }

    std::string generated = _findAvailableSubscriberName(name);
    if (generated.empty())
        return std::string();
    SubscriberPtr subscriber = boost::make_shared<Subscriber>(generated);
    for (size_t i = 0; i < cameraNames.size(); ++i)
        subscriber->setCameraPreferences(cameraNames[i], requests[i]);
    subscriber->setActiveCameras(cameraNames);
    // The requested rate, written back into every request.
    subscriber->setFrameRate(frameRate);
    {
        RaisedLock raised(subscribersLock);
        if (!_subscribers.insert(std::make_pair(generated, subscriber)).second) {
            FRAMEHUB_LOG(LEVEL_ERROR) << "Can't add subscriber \"" << generated << "\" to FrameHub.";
            return std::string();
        }
    }
    for (size_t i = 0; i < cameraNames.size(); ++i)
        cameras[i]->addPreferences(requests[i]);

    FRAMEHUB_LOG(LEVEL_VERBOSE) << "Registered subscriber \"" << name << "\"";
    for (size_t i = 0; i < cameraNames.size(); ++i) {
        const Resolution r = requests[i]->getResolution();
        FRAMEHUB_LOG(LEVEL_VERBOSE) << "  with active camera: " << cameraNames[i] << ", resolution: " << r.width << "x"
                                    << r.height << ", colorspace: " << static_cast<int>(requests[i]->getColorSpace());
    }
    FRAMEHUB_LOG(LEVEL_VERBOSE) << "  framerate: " << requests[0]->getRefreshRate();
    return generated;
}

bool FrameHubPrivate::unsubscribe(const std::string& name)
{
    UpgradeLock subscribersLock(_subscribersMutex);
    std::map<std::string, SubscriberPtr>::iterator it = _subscribers.find(name);
    if (it == _subscribers.end()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "Can't unsubscribe \"" << name << "\", subscriber is unknown.";
        return false;
    }
    SubscriberPtr subscriber = it->second;
    if (subscriber->isProcessing()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "Subscriber \"" << name
                                  << "\" has not released all its requested buffers. Please call "
                                     "releaseImage(s) before.";
        return false;
    }
    for (const std::string& listed : subscriber->getActiveCameraList()) {
        const std::string realName = _getRealCameraName(listed);
        // A name that is in no registry (an empty alias) has nothing to detach.
        if (Camera* camera = _camera(realName))
            camera->removePreferences(subscriber->getCameraPreferences(realName));
    }
    size_t erased;
    {
        RaisedLock raised(subscribersLock);
        FRAMEHUB_LOG(LEVEL_VERBOSE) << "Unregistered subscriber \"" << name << "\"";
        erased = _subscribers.erase(name);
    }
    return erased == 1;
}

// ---- Registration --------------------------------------------------------------

bool FrameHubPrivate::addCamera(const CameraInfo& cameraInfo)
{
    // Registrations run one at a time; readers of the registry never wait.
    std::lock_guard<std::mutex> registration(_registrationMutex);
    CameraPtr camera = CameraBuilder(cameraInfo).getCamera();
    if (!camera || camera->hasError())
        return false;
    if (_camera(camera->getName()))
        return false;
    // Started and closed once before anybody can reach it.
    camera->start();
    const bool closed = camera->close();
    _publishCamera(camera);
    return closed;
}

} // namespace FrameHub
} // namespace Kelmo
