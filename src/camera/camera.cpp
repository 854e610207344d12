// Camera: construction, lifecycle state machine and request negotiation.
#include "camera/camera.h"

#include "types/framehub_log.h"
#include "types/locks.h"

#include <boost/make_shared.hpp>
#include <boost/thread/locks.hpp>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camera")

Camera::Camera(const std::string& model, const std::string& name)
    : _name(name)
    , _model(model)
    , _fieldOfView(0.0f, 0.0f)
    , _defaultFlip(false, false)
    , _currentPreferences(CameraPreferences::defaultResolution, CameraPreferences::defaultColorSpace, 0)
    , _isOpen(false)
    , _isStarted(false)
    , _hasError(false)
    , _rawFailureCount(0)
    , _extraRawFailureCount(0)
{
    _initSoftwareParameterMap();
}

Camera::~Camera() { }

bool Camera::hasError() const { return _hasError; }
const std::string& Camera::getError() const { return _error; }

bool Camera::isColorSpaceValid(const ColorSpace& colorSpace) const
{
    return _nativelySupportedColorSpaces.count(colorSpace) != 0;
}

bool Camera::isExtraColorSpace(const ColorSpace&) const { return false; }

bool Camera::_openDevice() { return true; }
bool Camera::_initDevice() { return true; }
bool Camera::_resetDevice() { return true; }
bool Camera::_releaseDevice() { return true; }
bool Camera::_closeDevice() { return true; }
bool Camera::_startStreaming() { return true; }
bool Camera::_stopStreaming() { return true; }

bool Camera::_putImage(const Resolution&, const ColorSpace&, const void*)
{
    FRAMEHUB_LOG(LEVEL_ERROR) << "putImage(): not supported with this camera.";
    return false;
}

CameraPreferences Camera::_getExpectedImageParameters()
{
    FRAMEHUB_LOG(LEVEL_ERROR) << "getExpectedImageParameters(): not supported with this camera.";
    return CameraPreferences(CameraPreferences::defaultResolution, CameraPreferences::defaultColorSpace, 0);
}

bool Camera::_stampConvertedBuffer(const CameraPreferences& preferences, const boost::shared_ptr<ImageBuffer>& source,
    const boost::shared_ptr<ImageBuffer>& destination, lumo::log::CategoryType category, const char* noSource,
    const char* noDestination)
{
    if (!source || !source->getData()) {
        FRAMEHUB_LOG_TO(category, LEVEL_ERROR, "_convertImage") << noSource;
        return false;
    }
    if (!destination || !destination->getData()) {
        FRAMEHUB_LOG_TO(category, LEVEL_ERROR, "_convertImage") << noDestination;
        return false;
    }
    destination->setResolution(preferences.getResolution());
    destination->setColorSpace(preferences.getColorSpace());
    destination->setTimeStamp(source->getTimeStamp());
    destination->setMonotonicTimeStamp(source->getMonotonicTimeStamp());
    destination->setFielOfView(source->getFieldOfView());
    return true;
}

// ---- Public wrappers -------------------------------------------------------

bool Camera::open()
{
    ExclusiveLock lock(_mutex);
    return _open();
}

bool Camera::close()
{
    ExclusiveLock lock(_mutex);
    return _close();
}

bool Camera::start()
{
    ExclusiveLock lock(_mutex);
    return _start();
}

bool Camera::stop()
{
    ExclusiveLock lock(_mutex);
    return _stop();
}

bool Camera::reset()
{
    ExclusiveLock lock(_mutex);
    return _reset();
}

bool Camera::setResolution(const Resolution& resolution)
{
    ExclusiveLock lock(_mutex);
    return _setResolution(resolution);
}

bool Camera::setColorSpace(const ColorSpace& colorSpace)
{
    ExclusiveLock lock(_mutex);
    return _setColorSpace(colorSpace);
}

bool Camera::setFrameRate(int frameRate)
{
    ExclusiveLock lock(_mutex);
    return _setFrameRate(frameRate);
}

bool Camera::putImage(const Resolution& resolution, const ColorSpace& colorSpace, const void* data)
{
    ExclusiveLock lock(_mutex);
    return _putImage(resolution, colorSpace, data);
}

CameraPreferences Camera::getExpectedImageParameters()
{
    {
        SharedLock lock(_mutex);
        if (_isOpen)
            return _getExpectedImageParameters();
    }
    // A back-end may open the camera to answer: two feeders starting on a
    // closed camera must not both run the open path, so the first one runs alone.
    ExclusiveLock lock(_mutex);
    return _getExpectedImageParameters();
}

// ---- Unlocked accessors ----------------------------------------------------

const std::string& Camera::getName() const { return _name; }
const std::string& Camera::getModel() const { return _model; }
bool Camera::isOpen() const { return _isOpen; }
bool Camera::isStarted() const { return _isStarted; }
Resolution Camera::getResolution() const { return _currentPreferences.getResolution(); }
ColorSpace Camera::getColorSpace() const { return _currentPreferences.getColorSpace(); }
int Camera::getFrameRate() const { return _currentPreferences.getRefreshRate(); }

std::pair<Resolution, Resolution> Camera::getResolutionRange() const
{
    return std::make_pair(*_nativelySupportedResolutions.begin(), *_nativelySupportedResolutions.rbegin());
}

std::pair<int, int> Camera::getFrameRateRange() const
{
    return std::make_pair(1, *_nativelySupportedFrameRates.rbegin());
}

boost::shared_ptr<CameraPreferences> Camera::buildDefaultPreferences() const
{
    return boost::make_shared<CameraPreferences>(*_nativelySupportedResolutions.begin(),
        *_nativelySupportedColorSpaces.begin(), *_nativelySupportedFrameRates.begin());
}

void Camera::setNativelySupportedResolutions(std::set<Resolution> resolutions)
{
    _nativelySupportedResolutions = resolutions;
    _currentPreferences.setResolution(*_nativelySupportedResolutions.begin());
}

void Camera::setNativelySupportedColorSpaces(std::set<ColorSpace> colorSpaces)
{
    _nativelySupportedColorSpaces = colorSpaces;
    _currentPreferences.setColorSpace(*_nativelySupportedColorSpaces.begin());
}

void Camera::setNativelySupportedFrameRates(std::set<int> frameRates)
{
    _nativelySupportedFrameRates = frameRates;
    _currentPreferences.setRefreshRate(*_nativelySupportedFrameRates.begin());
}

void Camera::_resetCurrentPreferencesToDefaults()
{
    boost::shared_ptr<CameraPreferences> defaults = buildDefaultPreferences();
    _currentPreferences.setResolution(defaults->getResolution());
    _currentPreferences.setColorSpace(defaults->getColorSpace());
    _currentPreferences.setRefreshRate(defaults->getRefreshRate());
}

// ---- State machine ---------------------------------------------------------

bool Camera::_open()
{
    if (_isOpen)
        return true;
    FRAMEHUB_LOG(LEVEL_VERBOSE) << "Opening " << _name;
    if (!_openDevice())
        return false;
    _isOpen = true;
    if (!_initDevice() || !_resetDevice()) {
        _closeDevice();
        _isOpen = false;
        return false;
    }
    // Opening puts every software parameter back to its default, which may
    // itself close the camera again (keep-alive with nobody attached).
    std::vector<Parameter> keys;
    for (const auto& entry : _softwareParameters)
        keys.push_back(entry.first);
    for (Parameter key : keys)
        _resetSoftwareParameter(key);
    return true;
}

bool Camera::_close()
{
    if (!_isOpen)
        return true;
    const bool stopped = _stop();
    FRAMEHUB_LOG(LEVEL_VERBOSE) << "Closing " << _name;
    const bool released = _releaseDevice();
    const bool closed = _closeDevice();
    _isOpen = false;
    return stopped && released && closed;
}

bool Camera::_start()
{
    if (_isStarted)
        return true;
    if (!_open()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "Error Starting " << _name;
        return false;
    }
    FRAMEHUB_LOG(LEVEL_VERBOSE) << "Starting " << _name;
    if (!_startStreaming())
        return false;
    _isStarted = true;
    return true;
}

bool Camera::_stop()
{
    if (!_isStarted)
        return true;
    FRAMEHUB_LOG(LEVEL_VERBOSE) << "Stoping " << _name;
    _isStarted = false;
    return _stopStreaming();
}

bool Camera::_reset()
{
    const bool wasStarted = _isStarted;
    bool result = true;
    FRAMEHUB_LOG(LEVEL_WARNING) << "Try to reset " << _name;
    if (!_close()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": Can't close associated device.";
        result = false;
    }
    if (!_open()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": Can't open associated device.";
        result = false;
    }
    if (!_update()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": Can't adapt state to subscriber(s) requirement.";
        if (wasStarted)
            _start();
        return false;
    }
    if (result)
        FRAMEHUB_LOG(LEVEL_INFO) << _name << " is now ready.";
    if (!wasStarted)
        return result;
    return _start() ? result : false;
}

bool Camera::_update()
{
    Resolution best = *_nativelySupportedResolutions.begin();
    for (const auto& p : _preferences) {
        const Resolution r = p->getResolution();
        if (r.width > best.width && r.height > best.height)
            best = r;
    }
    bool ok = true;
    const Resolution current = _currentPreferences.getResolution();
    if (best != current) {
        FRAMEHUB_LOG(LEVEL_VERBOSE) << _name << " update resolution from " << current.width << "x" << current.height
                                    << " to " << best.width << "x" << best.height;
        ok = _setResolution(best);
    }

    int rate = 1;
    for (const auto& p : _preferences)
        if (p->getRefreshRate() > rate)
            rate = p->getRefreshRate();
    const int currentRate = _currentPreferences.getRefreshRate();
    if (rate != currentRate) {
        FRAMEHUB_LOG(LEVEL_VERBOSE) << _name << " update frame rate from " << currentRate << " to " << rate;
        if (ok)
            ok = _setFrameRate(rate);
    }
    return ok;
}

// ---- Negotiation -----------------------------------------------------------

bool Camera::isResolutionValid(const Resolution& resolution) const
{
    const Resolution& largest = *_nativelySupportedResolutions.rbegin();
    return resolution.width <= largest.width && resolution.height <= largest.height;
}

bool Camera::isFrameRateValid(int frameRate) const
{
    return frameRate >= 1 && frameRate <= *_nativelySupportedFrameRates.rbegin();
}

bool Camera::isValidRequest(const CameraPreferences& preferences) const
{
    const Resolution r = preferences.getResolution();
    if (!isResolutionValid(r)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "resolution " << r.width << "x" << r.height << " not supported by device.";
        return false;
    }
    if (!isColorSpaceValid(preferences.getColorSpace())) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "colorspace " << static_cast<int>(preferences.getColorSpace())
                                  << " not supported by device.";
        return false;
    }
    if (!isFrameRateValid(preferences.getRefreshRate())) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "frame rate " << preferences.getRefreshRate() << " not supported by the device.";
        return false;
    }
    return true;
}

bool Camera::updateRequestToValidRequest(CameraPreferences& preferences) const
{
    const int highestRate = *_nativelySupportedFrameRates.rbegin();
    if (preferences.getRefreshRate() <= 0) {
        FRAMEHUB_LOG(LEVEL_WARNING) << "Invalid Framerate, Framerate set to: 1";
        preferences.setRefreshRate(1);
    } else if (preferences.getRefreshRate() > highestRate) {
        FRAMEHUB_LOG(LEVEL_WARNING) << "Invalid Framerate, Framerate set to: " << highestRate;
        preferences.setRefreshRate(highestRate);
    }
    if (!isResolutionValid(preferences.getResolution())) {
        const Resolution r = buildDefaultPreferences()->getResolution();
        FRAMEHUB_LOG(LEVEL_WARNING) << "Invalid Resolution, Resolution set to: " << r.width << "x" << r.height;
        preferences.setResolution(r);
    }
    if (!isColorSpaceValid(preferences.getColorSpace())) {
        const ColorSpace c = buildDefaultPreferences()->getColorSpace();
        FRAMEHUB_LOG(LEVEL_WARNING) << "Invalid ColorSpace, ColorSpace set to: " << static_cast<int>(c);
        preferences.setColorSpace(c);
    }
    return isValidRequest(preferences);
}

bool Camera::addPreferences(boost::shared_ptr<CameraPreferences> preferences)
{
    ExclusiveLock lock(_mutex);
    if (!preferences) {
        FRAMEHUB_LOG(LEVEL_WARNING) << _name << ": Invalid preferences, can't insert it.";
        return false;
    }
    if (!isValidRequest(*preferences)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": Can't add preferences, invalid camera preferences request.";
        return false;
    }
    if (!_preferences.insert(preferences).second) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": Can't insert preferences to camera preferences list.";
        return false;
    }
    // Twice on purpose: the second call is one more attempt after a failure.
    _open();
    _open();
    return _update();
}

bool Camera::removePreferences(boost::shared_ptr<CameraPreferences> preferences)
{
    ExclusiveLock lock(_mutex);
    if (!preferences) {
        FRAMEHUB_LOG(LEVEL_WARNING) << _name << ": Invalid preferences, can't remove it.";
        return false;
    }
    if (_preferences.erase(preferences) == 0) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": Can't remove preferences to camera preferences list.";
        return false;
    }
    _decreaseAllBufferNumber(*preferences);
    if (_preferences.empty() && _getSoftwareParameter(PARAMETER_KEEP_ALIVE) == 0) {
        _close();
        _resetCurrentPreferencesToDefaults();
        return true;
    }
    return _update();
}

bool Camera::updateResolutionPreferences(boost::shared_ptr<CameraPreferences> preferences, const Resolution& resolution)
{
    ExclusiveLock lock(_mutex);
    if (_preferences.empty() || _preferences.count(preferences) == 0)
        return false;
    if (!isResolutionValid(resolution)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << " can't support requested resolution (" << resolution.width << "x"
                                  << resolution.height << ").";
        return false;
    }
    _decreaseAllBufferNumber(*preferences);
    preferences->setResolution(resolution);
    return _update();
}

bool Camera::updateColorSpacePreferences(boost::shared_ptr<CameraPreferences> preferences, const ColorSpace& colorSpace)
{
    ExclusiveLock lock(_mutex);
    if (_preferences.empty() || _preferences.count(preferences) == 0)
        return false;
    if (!isColorSpaceValid(colorSpace)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << " can't support requested colorSpace (" << static_cast<int>(colorSpace)
                                  << ").";
        return false;
    }
    _decreaseAllBufferNumber(*preferences);
    preferences->setColorSpace(colorSpace);
    return _update();
}

bool Camera::updateFrameRatePreferences(boost::shared_ptr<CameraPreferences> preferences, int frameRate)
{
    ExclusiveLock lock(_mutex);
    if (_preferences.empty() || _preferences.count(preferences) == 0)
        return false;
    if (!isFrameRateValid(frameRate)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << " can't support requested frame rate (" << frameRate << ").";
        return false;
    }
    preferences->setRefreshRate(frameRate);
    return _update();
}

} // namespace FrameHub
} // namespace Kelmo
