#ifndef FRAMEHUB_SRC_V4L2_CAMERA_V4L2_H
#define FRAMEHUB_SRC_V4L2_CAMERA_V4L2_H

#include "pipeline/camera_2d.h"
#include "v4l2/device_io.h"

#include <boost/scoped_ptr.hpp>
#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Kelmo {
namespace FrameHub {

class MjpegDecoder;

// A Video4Linux2 capture device (model "V4L2"); the backend argument is its
// path, /dev/video0 when empty. Frames arrive by memory-mapped streaming as
// YUYV, or as MJPEG decoded to YUYV for the sizes the device offers only
// compressed. A fetch that needs a frame drains what the driver has ready,
// keeps the newest, copies it into the raw buffer and gives every device
// buffer back at once, so clients that hold images never starve the device.
//
// Faults (busy, not a capture device, no usable format, a device that goes
// away) are logged and answered with the neutral value. A device that
// disappears is closed at once; the camera's reset after repeated misses
// reopens it, so a replugged camera streams again.
//
// Parameters and the controls they drive; the range and default are the
// driver's (VIDIOC_QUERYCTRL), and a parameter the device lacks is refused:
//
// | Parameter                          | Control                                             |
// |------------------------------------|-----------------------------------------------------|
// | PARAMETER_BRIGHTNESS               | V4L2_CID_BRIGHTNESS                                 |
// | PARAMETER_CONTRAST                 | V4L2_CID_CONTRAST                                   |
// | PARAMETER_SATURATION               | V4L2_CID_SATURATION                                 |
// | PARAMETER_HUE                      | V4L2_CID_HUE                                        |
// | PARAMETER_RED_CHROMA               | V4L2_CID_RED_BALANCE                                |
// | PARAMETER_BLUE_CHROMA              | V4L2_CID_BLUE_BALANCE                               |
// | PARAMETER_GAIN                     | V4L2_CID_GAIN                                       |
// | PARAMETER_HORIZONTAL_FLIP          | V4L2_CID_HFLIP                                      |
// | PARAMETER_VERTICAL_FLIP            | V4L2_CID_VFLIP                                      |
// | PARAMETER_AUTO_FOCUS               | V4L2_CID_FOCUS_AUTO                                 |
// | PARAMETER_AUTO_EXPOSITION          | V4L2_CID_EXPOSURE_AUTO as 0/1: 0 manual, 1 the      |
// |                                    | device's automatic mode (full auto, else aperture   |
// |                                    | priority, else shutter priority)                    |
// | PARAMETER_AUTO_WHITE_BALANCE       | V4L2_CID_AUTO_WHITE_BALANCE                         |
// | PARAMETER_AUTO_GAIN                | V4L2_CID_AUTOGAIN                                   |
// | PARAMETER_EXPOSURE                 | V4L2_CID_EXPOSURE_ABSOLUTE (100 us), else           |
// |                                    | V4L2_CID_EXPOSURE (driver units)                    |
// | PARAMETER_SHARPNESS                | V4L2_CID_SHARPNESS                                  |
// | PARAMETER_WHITE_BALANCE            | V4L2_CID_WHITE_BALANCE_TEMPERATURE (kelvin)         |
// | PARAMETER_BACK_LIGHT_COMPENSATION  | V4L2_CID_BACKLIGHT_COMPENSATION                     |
// | PARAMETER_KEEP_ALIVE               | none: the camera's own                              |
// | all others                         | none: unsupported                                   |
//
// Opening puts every control back to the driver's default and the flips to
// the camera's default orientation, like the software parameters.
//
// Sources: camera_v4l2.cpp (device, format, streaming, grab),
// camera_v4l2_controls.cpp, v4l2_describe.cpp (the public describe and list).
class CameraV4L2 : public Camera2D {
public:
    CameraV4L2(const std::string& name, const std::string& backendArgument);
    // With a device of the caller's: tests pass a fake.
    CameraV4L2(const std::string& name, const std::string& backendArgument, boost::shared_ptr<DeviceIo> io);
    ~CameraV4L2() override;

    const std::string& getDevicePath() const { return _path; }

protected:
    bool _openDevice() override;
    bool _initDevice() override;
    bool _resetDevice() override;
    bool _releaseDevice() override;
    bool _closeDevice() override;
    bool _startStreaming() override;
    bool _stopStreaming() override;
    bool _setResolution(const Resolution& resolution) override;
    bool _setColorSpace(const ColorSpace& colorSpace) override;
    bool _setFrameRate(int frameRate) override;
    bool _getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer) override;

    int _getHardwareParameter(const Parameter& parameter) const override;
    ParameterInfo _getHardwareParameterInfo(const Parameter& parameter) const override;
    bool _setHardwareParameter(const Parameter& parameter, int value) override;
    bool _resetHardwareParameter(const Parameter& parameter) override;

private:
    struct Mapping {
        void* address;
        size_t length;
    };
    // A control as the driver described it. For auto exposure the range is
    // the boolean view and `automatic` the menu entry that 1 stands for.
    struct Control {
        uint32_t id;
        ParameterInfo info;
        bool automaticMenu;
        int32_t automatic;
    };
    // A dequeued device buffer; the stamp is the driver's, in microseconds.
    struct Frame {
        unsigned index;
        uint32_t bytesUsed;
        uint32_t flags;
        int64_t stamp;
    };
    enum Drain { DRAIN_FRAME, DRAIN_NONE, DRAIN_FAILED };

    // An ioctl retried on EINTR; on failure logs `what` with the driver's
    // reason, and a vanished device is closed.
    bool _ioctl(unsigned long request, void* arg, const char* what, const char* function);
    bool _configureFormat(const Resolution& resolution, const char* function);
    bool _applyFormat(const Resolution& resolution, const char* function);
    bool _applyFrameRate(const char* function);
    bool _mapBuffers(const char* function);
    void _unmapBuffers();
    void _closeFd();
    bool _streamOn(const char* function);
    void _streamOff(const char* function);
    void _deviceLost(const char* call, const char* function);
    Drain _drainNewest(Frame& newest, const char* function);
    bool _requeue(unsigned index, const char* function);
    bool _copyFrame(const Frame& frame, ImageBuffer& buffer);
    int64_t _epochStamp(uint32_t flags, int64_t driverMicroseconds);
    void _queryControls();
    void _resetControls();
    const Control* _control(const Parameter& parameter, const char* function) const;

    std::string _path;
    boost::shared_ptr<DeviceIo> _io;
    int _fd;
    bool _streaming;
    bool _awaitingFirstFrame;
    std::vector<Mapping> _mappings;
    // Frame sizes by the pixel format that serves them; YUYV where both do.
    std::map<Resolution, uint32_t> _formats;
    uint32_t _pixelFormat;
    uint64_t _bytesPerLine;
    int64_t _framePeriodMicroseconds;
    std::map<Parameter, Control> _controls;
    boost::scoped_ptr<MjpegDecoder> _decoder;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
