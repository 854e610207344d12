// CameraV4L2: parameters served by the device's controls (table in the header).
#include "v4l2/camera_v4l2.h"

#include "types/framehub_log.h"
#include "v4l2/v4l2_enumerate.h"

#include <cerrno>
#include <cstring>
#include <linux/videodev2.h>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camerav4l2")

namespace {

struct ControlMapping {
    Parameter parameter;
    uint32_t controls[2]; // the first the device has wins; 0 ends the list
};

const ControlMapping kControlMappings[] = {
    { PARAMETER_BRIGHTNESS, { V4L2_CID_BRIGHTNESS, 0 } },
    { PARAMETER_CONTRAST, { V4L2_CID_CONTRAST, 0 } },
    { PARAMETER_SATURATION, { V4L2_CID_SATURATION, 0 } },
    { PARAMETER_HUE, { V4L2_CID_HUE, 0 } },
    { PARAMETER_RED_CHROMA, { V4L2_CID_RED_BALANCE, 0 } },
    { PARAMETER_BLUE_CHROMA, { V4L2_CID_BLUE_BALANCE, 0 } },
    { PARAMETER_GAIN, { V4L2_CID_GAIN, 0 } },
    { PARAMETER_HORIZONTAL_FLIP, { V4L2_CID_HFLIP, 0 } },
    { PARAMETER_VERTICAL_FLIP, { V4L2_CID_VFLIP, 0 } },
    { PARAMETER_AUTO_FOCUS, { V4L2_CID_FOCUS_AUTO, 0 } },
    { PARAMETER_AUTO_EXPOSITION, { V4L2_CID_EXPOSURE_AUTO, 0 } },
    { PARAMETER_AUTO_WHITE_BALANCE, { V4L2_CID_AUTO_WHITE_BALANCE, 0 } },
    { PARAMETER_AUTO_GAIN, { V4L2_CID_AUTOGAIN, 0 } },
    { PARAMETER_EXPOSURE, { V4L2_CID_EXPOSURE_ABSOLUTE, V4L2_CID_EXPOSURE } },
    { PARAMETER_SHARPNESS, { V4L2_CID_SHARPNESS, 0 } },
    { PARAMETER_WHITE_BALANCE, { V4L2_CID_WHITE_BALANCE_TEMPERATURE, 0 } },
    { PARAMETER_BACK_LIGHT_COMPENSATION, { V4L2_CID_BACKLIGHT_COMPENSATION, 0 } },
};

const ParameterInfo kInvalidInfo = { INVALID_PARAMETER_VALUE, INVALID_PARAMETER_VALUE, 0, INVALID_PARAMETER_VALUE };

bool isFlip(Parameter p) { return p == PARAMETER_HORIZONTAL_FLIP || p == PARAMETER_VERTICAL_FLIP; }

bool hasMenuEntry(DeviceIo& io, int fd, uint32_t id, int32_t index)
{
    v4l2_querymenu entry;
    std::memset(&entry, 0, sizeof(entry));
    entry.id = id;
    entry.index = static_cast<uint32_t>(index);
    return ioctlRetried(io, fd, VIDIOC_QUERYMENU, &entry) == 0;
}

// The driver's description of a control, or false when the device lacks it.
bool queryControl(DeviceIo& io, int fd, uint32_t id, v4l2_queryctrl& query)
{
    std::memset(&query, 0, sizeof(query));
    query.id = id;
    if (ioctlRetried(io, fd, VIDIOC_QUERYCTRL, &query) != 0 || (query.flags & V4L2_CTRL_FLAG_DISABLED))
        return false;
    return query.type == V4L2_CTRL_TYPE_INTEGER || query.type == V4L2_CTRL_TYPE_BOOLEAN
        || query.type == V4L2_CTRL_TYPE_MENU || query.type == V4L2_CTRL_TYPE_INTEGER_MENU;
}

} // namespace

void CameraV4L2::_queryControls()
{
    for (const auto& entry : _controls)
        _hardwareParameters.erase(entry.first);
    _controls.clear();
    for (const ControlMapping& mapping : kControlMappings) {
        for (uint32_t id : mapping.controls) {
            v4l2_queryctrl query;
            if (id == 0 || !queryControl(*_io, _fd, id, query))
                continue;
            Control control = { id, { query.minimum, query.maximum, query.step, query.default_value }, false, 0 };
            if (id == V4L2_CID_EXPOSURE_AUTO) {
                // A boolean view of the menu: manual, or the device's automatic mode.
                const int32_t automatic[]
                    = { V4L2_EXPOSURE_AUTO, V4L2_EXPOSURE_APERTURE_PRIORITY, V4L2_EXPOSURE_SHUTTER_PRIORITY };
                control.automatic = -1;
                for (int32_t mode : automatic)
                    if (control.automatic < 0 && hasMenuEntry(*_io, _fd, id, mode))
                        control.automatic = mode;
                if (control.automatic < 0 || !hasMenuEntry(*_io, _fd, id, V4L2_EXPOSURE_MANUAL))
                    continue;
                control.automaticMenu = true;
                control.info = { 0, 1, 1, query.default_value == V4L2_EXPOSURE_MANUAL ? 0 : 1 };
            }
            _controls[mapping.parameter] = control;
            // The core routes flips by number; everything else by this key.
            if (!isFlip(mapping.parameter))
                _hardwareParameters[mapping.parameter] = 0;
            break;
        }
    }
}

// At every open, like the software parameters: driver defaults, and the
// flips at the camera's normal orientation.
void CameraV4L2::_resetControls()
{
    for (const auto& entry : _controls) {
        if (_fd < 0)
            return;
        const Control& c = entry.second;
        int32_t value
            = c.automaticMenu ? (c.info.defaultValue ? c.automatic : V4L2_EXPOSURE_MANUAL) : c.info.defaultValue;
        if (entry.first == PARAMETER_HORIZONTAL_FLIP)
            value = _defaultFlip.first;
        else if (entry.first == PARAMETER_VERTICAL_FLIP)
            value = _defaultFlip.second;
        v4l2_control control = { c.id, value };
        // A control that automatic mode holds inactive refuses; that is its default state anyway.
        if (ioctlRetried(*_io, _fd, VIDIOC_S_CTRL, &control) != 0 && errno != EBUSY && errno != EACCES)
            FRAMEHUB_LOG(LEVEL_VERBOSE) << _name << ": can't reset " << getParameterName(entry.first) << " on " << _path
                                        << ": " << errorText(errno) << ".";
    }
}

const CameraV4L2::Control* CameraV4L2::_control(const Parameter& parameter, const char* function) const
{
    const std::map<Parameter, Control>::const_iterator it = _controls.find(parameter);
    if (it == _controls.end()) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
            << _name << ": parameter " << getParameterName(parameter) << " unsupported by " << _path << ".";
        return nullptr;
    }
    if (_fd < 0) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
            << _name << ": parameter " << getParameterName(parameter) << ": " << _path << " is not open.";
        return nullptr;
    }
    return &it->second;
}

int CameraV4L2::_getHardwareParameter(const Parameter& parameter) const
{
    const Control* c = _control(parameter, "getParameter");
    if (!c)
        return INVALID_PARAMETER_VALUE;
    v4l2_control control = { c->id, 0 };
    if (ioctlRetried(*_io, _fd, VIDIOC_G_CTRL, &control) != 0) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "getParameter") << _name << ": can't read " << getParameterName(parameter)
                                                     << " from " << _path << ": " << errorText(errno) << ".";
        return INVALID_PARAMETER_VALUE;
    }
    if (c->automaticMenu)
        return control.value == V4L2_EXPOSURE_MANUAL ? 0 : 1;
    return control.value;
}

ParameterInfo CameraV4L2::_getHardwareParameterInfo(const Parameter& parameter) const
{
    const Control* c = _control(parameter, "getParameterInfo");
    if (!c)
        return kInvalidInfo;
    if (c->automaticMenu)
        return c->info;
    // Asked afresh: some ranges follow the format (exposure with the frame rate).
    v4l2_queryctrl query;
    if (!queryControl(*_io, _fd, c->id, query))
        return c->info;
    return ParameterInfo { query.minimum, query.maximum, query.step, query.default_value };
}

bool CameraV4L2::_setHardwareParameter(const Parameter& parameter, int value)
{
    const Control* c = _control(parameter, "setParameter");
    if (!c)
        return false;
    const ParameterInfo range = _getHardwareParameterInfo(parameter);
    if (value < range.minimum || value > range.maximum) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "setParameter")
            << _name << ": " << value << " is out of the range " << range.minimum << " to " << range.maximum << " of "
            << getParameterName(parameter) << ".";
        return false;
    }
    v4l2_control control = { c->id, c->automaticMenu ? (value ? c->automatic : V4L2_EXPOSURE_MANUAL) : value };
    if (ioctlRetried(*_io, _fd, VIDIOC_S_CTRL, &control) != 0) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, "setParameter") << _name << ": can't set " << getParameterName(parameter) << " on "
                                                     << _path << ": " << errorText(errno) << ".";
        return false;
    }
    return true;
}

bool CameraV4L2::_resetHardwareParameter(const Parameter& parameter)
{
    const Control* c = _control(parameter, "resetParameter");
    return c && _setHardwareParameter(parameter, c->info.defaultValue);
}

} // namespace FrameHub
} // namespace Kelmo
