// CameraV4L2: device, format, frame rate, streaming and the grab.
#include "v4l2/camera_v4l2.h"

#include "types/framehub_log.h"
#include "v4l2/mjpeg_decoder.h"
#include "v4l2/v4l2_enumerate.h"

#include <lumo/os.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/mman.h>
#include <time.h>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camerav4l2")

namespace {

const char* const kDefaultPath = "/dev/video0";
// Enough to keep the driver filling one while we copy another.
const unsigned kBufferCount = 4;
// A grab waits at most this many frame periods, and never less than the floor.
const int64_t kWaitPeriods = 3;
const int64_t kWaitFloorMicroseconds = 150000;
// Devices take their time to deliver the first frame after STREAMON
// (exposure settling, a sound server negotiating): the first grab waits longer.
const int64_t kFirstFrameMicroseconds = 2000000;
// Polls within one grab: spurious wake-ups and dropped frames are bounded
// in count as well as in time.
const int kMaxWaits = 1000;
// Some devices report ready on every poll; after a second empty wake-up in a
// row the grab backs off rather than spinning until the next frame.
const long kBackOffNanoseconds = 1000000;
// A driver stamp older than this, or in the future, is not believed.
const int64_t kMaxFrameAgeMicroseconds = 1000000;

bool isLost(int error) { return error == ENODEV || error == ENXIO; }

} // namespace

CameraV4L2::CameraV4L2(const std::string& name, const std::string& backendArgument)
    : CameraV4L2(name, backendArgument, boost::make_shared<SystemDeviceIo>())
{
}

CameraV4L2::CameraV4L2(const std::string& name, const std::string& backendArgument, boost::shared_ptr<DeviceIo> io)
    : Camera2D("V4L2", name)
    , _path(backendArgument.empty() ? kDefaultPath : backendArgument)
    , _io(io)
    , _fd(-1)
    , _streaming(false)
    , _awaitingFirstFrame(false)
    , _pixelFormat(V4L2_PIX_FMT_YUYV)
    , _bytesPerLine(0)
    , _framePeriodMicroseconds(1000000 / 30)
{
}

CameraV4L2::~CameraV4L2()
{
    close();
    // close() does nothing on a camera the core thinks closed; the device may
    // still be held after a failed open or a lost stream.
    _closeFd();
}

// ---- Device ------------------------------------------------------------------

bool CameraV4L2::_openDevice()
{
    if (_fd >= 0)
        return true;
    _fd = _io->open(_path.c_str(), O_RDWR | O_NONBLOCK);
    if (_fd < 0) {
        const int error = errno;
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": can't open " << _path << ": " << errorText(error) << ".";
        return false;
    }
    const uint32_t caps = deviceCapabilities(*_io, _fd, nullptr);
    if (!(caps & V4L2_CAP_VIDEO_CAPTURE)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": " << _path << " is not a video capture device.";
        _closeFd();
        return false;
    }
    if (!(caps & V4L2_CAP_STREAMING)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": " << _path << " can't stream by memory mapping.";
        _closeFd();
        return false;
    }
    return true;
}

bool CameraV4L2::_initDevice()
{
    DeviceFormats formats = enumerateFormats(*_io, _fd);
    if (formats.sizes.empty()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": " << _path << " offers no YUYV (nor MJPEG) format.";
        return false;
    }
    _formats.swap(formats.sizes);
    _queryControls();
    return true;
}

// Back to what the subscribers need: format, rate, and every control at its default.
bool CameraV4L2::_resetDevice()
{
    if (!_configureFormat(_currentPreferences.getResolution(), __func__) || _fd < 0)
        return false;
    _applyFrameRate(__func__);
    _resetControls();
    return _fd >= 0;
}

bool CameraV4L2::_releaseDevice()
{
    _streamOff(__func__);
    return true;
}

bool CameraV4L2::_closeDevice()
{
    _closeFd();
    return true;
}

void CameraV4L2::_closeFd()
{
    _unmapBuffers();
    _streaming = false;
    if (_fd >= 0)
        _io->close(_fd);
    _fd = -1;
}

// A device that went away is closed at once: a replugged camera then gets
// its old node back instead of a new number, and the reset reopens it.
void CameraV4L2::_deviceLost(const char* call, const char* function)
{
    FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
        << _name << ": " << _path << " disappeared (" << call << ": " << errorText(ENODEV) << ").";
    _closeFd();
}

bool CameraV4L2::_ioctl(unsigned long request, void* arg, const char* what, const char* function)
{
    if (_fd < 0) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << _name << ": " << what << " on " << _path << ": not open.";
        return false;
    }
    if (ioctlRetried(*_io, _fd, request, arg) == 0)
        return true;
    const int error = errno;
    if (isLost(error))
        _deviceLost(what, function);
    else if (error == EBUSY)
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
            << _name << ": " << _path << " is busy (" << what << "): another process is using it.";
    else
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
            << _name << ": " << what << " failed on " << _path << ": " << errorText(error) << ".";
    errno = error;
    return false;
}

// ---- Format and rate -----------------------------------------------------------

bool CameraV4L2::_setResolution(const Resolution& resolution)
{
    if (!_nativelySupportedResolutions.count(resolution)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": " << resolution.width << "x" << resolution.height
                                  << " is not a native resolution.";
        return false;
    }
    // Closed (or lost): the next open applies it.
    if (_fd < 0) {
        _currentPreferences.setResolution(resolution);
        return true;
    }
    return _configureFormat(resolution, __func__);
}

bool CameraV4L2::_setColorSpace(const ColorSpace& colorSpace)
{
    if (colorSpace != COLORSPACE_YUV_422) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": colour space " << getColorSpaceName(colorSpace)
                                  << " unsupported, the device delivers COLORSPACE_YUV_422.";
        return false;
    }
    _currentPreferences.setColorSpace(colorSpace);
    return true;
}

bool CameraV4L2::_setFrameRate(int frameRate)
{
    // _update asks for 1 when nobody is subscribed: the slowest native rate.
    const int lowest = *_nativelySupportedFrameRates.begin(), highest = *_nativelySupportedFrameRates.rbegin();
    _currentPreferences.setRefreshRate(std::min(std::max(frameRate, lowest), highest));
    if (_fd < 0)
        return true;
    return _applyFrameRate(__func__);
}

// The buffers belong to one format: a running stream is stopped around the change.
bool CameraV4L2::_configureFormat(const Resolution& resolution, const char* function)
{
    const bool wasStreaming = _streaming;
    const Resolution previous = _currentPreferences.getResolution();
    if (wasStreaming)
        _streamOff(function);
    bool ok = _applyFormat(resolution, function);
    // A refused answer still changed the device's format: put the old one back.
    if (!ok && _fd >= 0 && previous != resolution)
        _applyFormat(previous, function);
    if (wasStreaming && _fd >= 0 && !_streamOn(function))
        ok = false;
    return ok;
}

bool CameraV4L2::_applyFormat(const Resolution& resolution, const char* function)
{
    const std::map<Resolution, uint32_t>::const_iterator known = _formats.find(resolution);
    v4l2_format format;
    std::memset(&format, 0, sizeof(format));
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = static_cast<uint32_t>(resolution.width);
    format.fmt.pix.height = static_cast<uint32_t>(resolution.height);
    format.fmt.pix.pixelformat = known == _formats.end() ? V4L2_PIX_FMT_YUYV : known->second;
    format.fmt.pix.field = V4L2_FIELD_NONE;
    if (!_ioctl(VIDIOC_S_FMT, &format, "VIDIOC_S_FMT", function))
        return false;

    const uint32_t pixelFormat = format.fmt.pix.pixelformat;
    if (pixelFormat != V4L2_PIX_FMT_YUYV && !isMjpeg(pixelFormat)) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
            << _name << ": " << _path << " delivers no YUYV at " << resolution.width << "x" << resolution.height << ".";
        return false;
    }
    // Drivers round sizes to what they can do: the camera follows only to
    // another of its native sizes.
    const Resolution chosen(format.fmt.pix.width, format.fmt.pix.height);
    if (chosen != resolution) {
        if (!_nativelySupportedResolutions.count(chosen)) {
            FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
                << _name << ": the driver of " << _path << " chose " << chosen.width << "x" << chosen.height << " for "
                << resolution.width << "x" << resolution.height << ", which is not a native resolution.";
            return false;
        }
        FRAMEHUB_LOG_AS(LEVEL_WARNING, function)
            << _name << ": the driver of " << _path << " chose " << chosen.width << "x" << chosen.height
            << " instead of " << resolution.width << "x" << resolution.height << ".";
    }
    _pixelFormat = pixelFormat;
    _bytesPerLine = std::max<uint64_t>(format.fmt.pix.bytesperline, chosen.width * 2);
    if (isMjpeg(pixelFormat) && !_decoder)
        _decoder.reset(new MjpegDecoder);
    _currentPreferences.setResolution(chosen);
    return true;
}

bool CameraV4L2::_applyFrameRate(const char* function)
{
    const int rate = _currentPreferences.getRefreshRate();
    _framePeriodMicroseconds = 1000000 / std::max(rate, 1);
    v4l2_streamparm parameters;
    std::memset(&parameters, 0, sizeof(parameters));
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    // Without a settable frame period the device keeps its own pace.
    if (ioctlRetried(*_io, _fd, VIDIOC_G_PARM, &parameters) != 0
        || !(parameters.parm.capture.capability & V4L2_CAP_TIMEPERFRAME))
        return true;
    parameters.parm.capture.timeperframe.numerator = 1;
    parameters.parm.capture.timeperframe.denominator = static_cast<uint32_t>(rate);
    if (ioctlRetried(*_io, _fd, VIDIOC_S_PARM, &parameters) != 0) {
        // Some drivers take a new rate only between streams.
        if (errno != EBUSY || !_streaming)
            return _ioctl(VIDIOC_S_PARM, &parameters, "VIDIOC_S_PARM", function);
        _streamOff(function);
        const bool ok = _ioctl(VIDIOC_S_PARM, &parameters, "VIDIOC_S_PARM", function);
        if (_fd < 0 || !_streamOn(function))
            return false;
        if (!ok)
            return false;
    }
    const v4l2_fract period = parameters.parm.capture.timeperframe;
    if (period.numerator > 0 && period.denominator > 0)
        _framePeriodMicroseconds = static_cast<int64_t>(period.numerator) * 1000000 / period.denominator;
    return true;
}

// ---- Streaming -----------------------------------------------------------------

bool CameraV4L2::_startStreaming()
{
    if (_fd < 0) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": " << _path << " is not open.";
        return false;
    }
    return _streaming || _streamOn(__func__);
}

bool CameraV4L2::_stopStreaming()
{
    _streamOff(__func__);
    return true;
}

bool CameraV4L2::_mapBuffers(const char* function)
{
    v4l2_requestbuffers request;
    std::memset(&request, 0, sizeof(request));
    request.count = kBufferCount;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (!_ioctl(VIDIOC_REQBUFS, &request, "VIDIOC_REQBUFS", function))
        return false;
    if (request.count < 2) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
            << _name << ": " << _path << " granted " << request.count << " buffers, 2 at least are needed.";
        return false;
    }
    for (unsigned i = 0; i < request.count; ++i) {
        v4l2_buffer buffer;
        std::memset(&buffer, 0, sizeof(buffer));
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        buffer.index = i;
        if (!_ioctl(VIDIOC_QUERYBUF, &buffer, "VIDIOC_QUERYBUF", function))
            return false;
        void* address = _io->mmap(buffer.length, _fd, static_cast<off_t>(buffer.m.offset));
        if (address == MAP_FAILED || buffer.length == 0) {
            const int error = errno;
            FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
                << _name << ": can't map buffer " << i << " of " << _path << ": " << errorText(error) << ".";
            return false;
        }
        _mappings.push_back(Mapping { address, buffer.length });
    }
    return true;
}

void CameraV4L2::_unmapBuffers()
{
    for (const Mapping& m : _mappings)
        _io->munmap(m.address, m.length);
    _mappings.clear();
}

bool CameraV4L2::_streamOn(const char* function)
{
    if (!_mapBuffers(function)) {
        _streamOff(function);
        return false;
    }
    for (unsigned i = 0; i < _mappings.size(); ++i)
        if (!_requeue(i, function)) {
            _streamOff(function);
            return false;
        }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (!_ioctl(VIDIOC_STREAMON, &type, "VIDIOC_STREAMON", function)) {
        _streamOff(function);
        return false;
    }
    _streaming = true;
    _awaitingFirstFrame = true;
    return true;
}

// Also tidies up after a half-done start; nothing here can fail in a way the
// caller could act on, and a vanished device has nothing left to stop.
void CameraV4L2::_streamOff(const char*)
{
    if (_fd >= 0 && _streaming) {
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        ioctlRetried(*_io, _fd, VIDIOC_STREAMOFF, &type);
    }
    _streaming = false;
    const bool mapped = !_mappings.empty();
    _unmapBuffers();
    if (_fd >= 0 && mapped) {
        v4l2_requestbuffers request;
        std::memset(&request, 0, sizeof(request));
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        ioctlRetried(*_io, _fd, VIDIOC_REQBUFS, &request);
    }
}

bool CameraV4L2::_requeue(unsigned index, const char* function)
{
    v4l2_buffer buffer;
    std::memset(&buffer, 0, sizeof(buffer));
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    return _ioctl(VIDIOC_QBUF, &buffer, "VIDIOC_QBUF", function);
}

// ---- The grab --------------------------------------------------------------------

bool CameraV4L2::_getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer)
{
    if (!buffer)
        return false;
    if (_fd < 0 || !_streaming) {
        FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": " << _path << " is not streaming.";
        return false;
    }
    const int64_t budget = std::max(kWaitPeriods * _framePeriodMicroseconds,
        _awaitingFirstFrame ? kFirstFrameMicroseconds : kWaitFloorMicroseconds);
    const int64_t start = _io->monotonicMicroseconds();
    int empty = 0;
    for (int wait = 0; wait < kMaxWaits; ++wait) {
        const int64_t left = budget - (_io->monotonicMicroseconds() - start);
        if (left <= 0)
            break;
        short events = 0;
        const int ready = _io->poll(_fd, static_cast<int>((left + 999) / 1000), &events);
        if (ready < 0) {
            const int error = errno;
            if (error == EINTR)
                continue;
            if (isLost(error))
                _deviceLost("poll", __func__);
            else
                FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": poll failed on " << _path << ": " << errorText(error) << ".";
            return false;
        }
        if (ready == 0)
            break;
        Frame frame;
        const Drain drained = _drainNewest(frame, __func__);
        if (drained == DRAIN_FAILED)
            return false;
        if (drained == DRAIN_NONE) {
            if (++empty > 1) {
                const timespec pause = { 0, kBackOffNanoseconds };
                nanosleep(&pause, nullptr);
            }
            continue;
        }
        empty = 0;
        const bool copied = _copyFrame(frame, *buffer);
        // The device buffer goes back before anyone reads the copy. A device
        // lost here still leaves a good copy behind.
        _requeue(frame.index, __func__);
        if (copied) {
            _awaitingFirstFrame = false;
            return true;
        }
        if (_fd < 0)
            return false;
    }
    FRAMEHUB_LOG(LEVEL_ERROR) << _name << ": no frame from " << _path << " within " << (budget + 999) / 1000 << " ms.";
    return false;
}

// Takes every frame the driver has ready, gives back all but the newest.
CameraV4L2::Drain CameraV4L2::_drainNewest(Frame& newest, const char* function)
{
    bool have = false;
    // Each buffer can be dequeued once before it is queued again.
    for (size_t i = 0; i <= _mappings.size(); ++i) {
        v4l2_buffer buffer;
        std::memset(&buffer, 0, sizeof(buffer));
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        if (ioctlRetried(*_io, _fd, VIDIOC_DQBUF, &buffer) != 0) {
            const int error = errno;
            if (error == EAGAIN)
                break;
            if (isLost(error)) {
                _deviceLost("VIDIOC_DQBUF", function);
                return DRAIN_FAILED;
            }
            FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
                << _name << ": VIDIOC_DQBUF failed on " << _path << ": " << errorText(error) << ".";
            break;
        }
        if (buffer.index >= _mappings.size()) {
            FRAMEHUB_LOG_AS(LEVEL_ERROR, function)
                << _name << ": " << _path << " returned buffer " << buffer.index << " of " << _mappings.size() << ".";
            break;
        }
        if (buffer.flags & V4L2_BUF_FLAG_ERROR) {
            FRAMEHUB_LOG_AS(LEVEL_VERBOSE, function) << _name << ": " << _path << " flagged a frame as corrupt.";
            if (!_requeue(buffer.index, function) && _fd < 0)
                return DRAIN_FAILED;
            continue;
        }
        if (have && !_requeue(newest.index, function) && _fd < 0)
            return DRAIN_FAILED;
        newest.index = buffer.index;
        newest.bytesUsed = buffer.bytesused;
        newest.flags = buffer.flags;
        newest.stamp = static_cast<int64_t>(buffer.timestamp.tv_sec) * 1000000 + buffer.timestamp.tv_usec;
        have = true;
    }
    return have ? DRAIN_FRAME : DRAIN_NONE;
}

bool CameraV4L2::_copyFrame(const Frame& frame, ImageBuffer& buffer)
{
    const Resolution size = _currentPreferences.getResolution();
    buffer.setResolution(size);
    buffer.setColorSpace(COLORSPACE_YUV_422);
    uint8_t* out = buffer.getData();
    if (!out)
        return false;
    const Mapping& mapping = _mappings[frame.index];
    const uint8_t* in = static_cast<const uint8_t*>(mapping.address);
    const uint64_t used = std::min<uint64_t>(frame.bytesUsed, mapping.length);
    const uint64_t row = size.width * 2;

    if (isMjpeg(_pixelFormat)) {
        std::string why;
        if (!_decoder || !_decoder->decode(in, used, size.width, size.height, out, why)) {
            FRAMEHUB_LOG_AS(LEVEL_WARNING, "_getDirectRawImage")
                << _name << ": dropped a frame of " << _path << ": " << why << ".";
            return false;
        }
    } else {
        const uint64_t needed = size.height == 0 ? 0 : _bytesPerLine * (size.height - 1) + row;
        if (used < needed) {
            FRAMEHUB_LOG_AS(LEVEL_WARNING, "_getDirectRawImage")
                << _name << ": dropped a short frame of " << _path << " (" << used << " of " << needed << " bytes).";
            return false;
        }
        if (_bytesPerLine == row)
            std::memcpy(out, in, row * size.height);
        else
            for (uint64_t y = 0; y < size.height; ++y)
                std::memcpy(out + y * row, in + y * _bytesPerLine, row);
    }
    buffer.setTimeStamp(_epochStamp(frame.flags, frame.stamp));
    return true;
}

// The driver's monotonic stamp moved onto the library's epoch clock by the
// frame's age; a driver without one, or with one not to be believed, is
// stamped at dequeue.
int64_t CameraV4L2::_epochStamp(uint32_t flags, int64_t driverMicroseconds)
{
    lumo::os::timeval now;
    lumo::os::gettimeofday(&now);
    const int64_t epochNow = now.tv_sec * 1000000 + now.tv_usec;
    if ((flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) != V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC || driverMicroseconds <= 0)
        return epochNow;
    const int64_t age = _io->monotonicMicroseconds() - driverMicroseconds;
    return age >= 0 && age < kMaxFrameAgeMicroseconds ? epochNow - age : epochNow;
}

} // namespace FrameHub
} // namespace Kelmo
