// Camera: parameters, sorted into flips, software and hardware.
#include "camera/camera.h"

#include "types/framehub_log.h"
#include "types/locks.h"

#include <boost/thread/locks.hpp>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camera")

namespace {

const ParameterInfo kBooleanInfo = { 0, 1, 1, 0 };
const ParameterInfo kInvalidInfo = { INVALID_PARAMETER_VALUE, INVALID_PARAMETER_VALUE, 0, INVALID_PARAMETER_VALUE };

bool isFlip(Parameter parameter)
{
    return parameter == PARAMETER_HORIZONTAL_FLIP || parameter == PARAMETER_VERTICAL_FLIP;
}
} // namespace

// ---- Public ------------------------------------------------------------------

int Camera::getParameter(const Parameter& parameter) const
{
    ExclusiveLock lock(_mutex);
    if (isFlip(parameter)) {
        // 0 is the device's normal orientation, whatever its raw value is.
        const bool normal = parameter == PARAMETER_HORIZONTAL_FLIP ? _defaultFlip.first : _defaultFlip.second;
        return _getHardwareParameter(parameter) != static_cast<int>(normal) ? 1 : 0;
    }
    if (_softwareParameters.count(parameter))
        return _getSoftwareParameter(parameter);
    if (_hardwareParameters.count(parameter))
        return _getHardwareParameter(parameter);
    FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": parameter " << getParameterName(parameter) << " unsupported.";
    return INVALID_PARAMETER_VALUE;
}

ParameterInfo Camera::getParameterInfo(const Parameter& parameter) const
{
    ExclusiveLock lock(_mutex);
    if (isFlip(parameter))
        return kBooleanInfo;
    if (_softwareParameters.count(parameter))
        return _getSoftwareParameterInfo(parameter);
    if (_hardwareParameters.count(parameter))
        return _getHardwareParameterInfo(parameter);
    FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": parameter " << getParameterName(parameter) << " unsupported.";
    return kInvalidInfo;
}

bool Camera::setParameter(const Parameter& parameter, int value)
{
    ExclusiveLock lock(_mutex);
    if (isFlip(parameter)) {
        const bool normal = parameter == PARAMETER_HORIZONTAL_FLIP ? _defaultFlip.first : _defaultFlip.second;
        const bool device = value == 0 ? normal : !normal;
        return _setHardwareParameter(parameter, static_cast<int>(device));
    }
    if (_softwareParameters.count(parameter))
        return _setSoftwareParameter(parameter, value);
    if (_hardwareParameters.count(parameter))
        return _setHardwareParameter(parameter, value);
    FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": parameter " << getParameterName(parameter) << " unsupported.";
    return false;
}

bool Camera::resetParameter(const Parameter& parameter)
{
    ExclusiveLock lock(_mutex);
    if (isFlip(parameter)) {
        const bool normal = parameter == PARAMETER_HORIZONTAL_FLIP ? _defaultFlip.first : _defaultFlip.second;
        return _setHardwareParameter(parameter, static_cast<int>(normal));
    }
    if (_softwareParameters.count(parameter))
        return _resetSoftwareParameter(parameter);
    if (_hardwareParameters.count(parameter))
        return _resetHardwareParameter(parameter);
    FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": parameter " << getParameterName(parameter) << " unsupported.";
    return false;
}

bool Camera::resetParameters()
{
    ExclusiveLock lock(_mutex);
    bool result = true;
    for (const auto& entry : _softwareParameters)
        if (!_resetSoftwareParameter(entry.first))
            result = false;
    if (!_resetDevice())
        result = false;
    return result;
}

std::pair<bool, bool> Camera::getDefaultFlip() const { return _defaultFlip; }

bool Camera::setDefaultFlip(bool horizontal, bool vertical)
{
    _defaultFlip = std::make_pair(horizontal, vertical);
    return true;
}

// ---- Hardware hooks: nothing is served by default ------------------------------

void Camera::_initHardwareParameterMap() { }
int Camera::_getHardwareParameter(const Parameter&) const { return INVALID_PARAMETER_VALUE; }
ParameterInfo Camera::_getHardwareParameterInfo(const Parameter&) const { return kInvalidInfo; }
bool Camera::_setHardwareParameter(const Parameter&, int) { return false; }
bool Camera::_resetHardwareParameter(const Parameter&) { return false; }

// ---- Software parameters -------------------------------------------------------

void Camera::_initSoftwareParameterMap() { _softwareParameters[PARAMETER_KEEP_ALIVE] = 0; }

int Camera::_getSoftwareParameter(const Parameter& parameter) const
{
    std::map<Parameter, int>::const_iterator it = _softwareParameters.find(parameter);
    if (it == _softwareParameters.end()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << " doesn't have parameter " << static_cast<int>(parameter);
        return INVALID_PARAMETER_VALUE;
    }
    return it->second;
}

ParameterInfo Camera::_getSoftwareParameterInfo(const Parameter& parameter) const
{
    if (parameter == PARAMETER_KEEP_ALIVE)
        return kBooleanInfo;
    FRAMEHUB_LOG(LEVEL_ERROR) << _name << " doesn't have parameter " << static_cast<int>(parameter);
    return kInvalidInfo;
}

bool Camera::_setSoftwareParameter(const Parameter& parameter, int value)
{
    std::map<Parameter, int>::iterator it = _softwareParameters.find(parameter);
    if (it == _softwareParameters.end()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << " doesn't have parameter " << static_cast<int>(parameter);
        return false;
    }
    // Keep-alive switched off with nobody left: the same close as when the
    // last subscriber leaves.
    if (parameter == PARAMETER_KEEP_ALIVE && it->second != 0 && value == 0 && _preferences.empty()) {
        _close();
        _resetCurrentPreferencesToDefaults();
    }
    it->second = value;
    return true;
}

bool Camera::_resetSoftwareParameter(const Parameter& parameter)
{
    if (parameter == PARAMETER_KEEP_ALIVE)
        return _setSoftwareParameter(parameter, 0);
    FRAMEHUB_LOG(LEVEL_ERROR) << _name << " doesn't have parameter " << static_cast<int>(parameter);
    return false;
}

} // namespace FrameHub
} // namespace Kelmo
