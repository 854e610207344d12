// Describing and listing capture devices: what the hub needs to build a camera.
#include "v4l2/v4l2_enumerate.h"

#include "types/framehub_log.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/videodev2.h>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camerav4l2")

namespace {

// Past these a driver's answer is nonsense, and a buffer of it a hazard.
const uint32_t kMaxSide = 16384;
const int kMaxRate = 1000;
// Bounds on the enumerations, against drivers that never say stop.
const uint32_t kMaxEntries = 256;
// What a stepwise or continuous range is sampled at.
const Resolution kCommonSizes[] = { { 160, 120 }, { 320, 240 }, { 640, 360 }, { 640, 480 }, { 800, 600 }, { 1280, 720 },
    { 1280, 960 }, { 1920, 1080 } };
const int kCommonRates[] = { 5, 10, 15, 20, 25, 30, 60 };
// A webcam's usual field of view across, when the device can't tell.
const float kTypicalHorizontalFieldOfView = 60.0f * 3.14159265f / 180.0f;

bool plausible(uint32_t width, uint32_t height)
{
    return width > 0 && height > 0 && width <= kMaxSide && height <= kMaxSide && width % 2 == 0;
}

int rateOf(const v4l2_fract& interval)
{
    if (interval.numerator == 0 || interval.denominator == 0)
        return 0;
    return static_cast<int>(std::lround(static_cast<double>(interval.denominator) / interval.numerator));
}

void addRate(std::set<int>& rates, int rate)
{
    if (rate >= 1 && rate <= kMaxRate)
        rates.insert(rate);
}

void ratesOf(DeviceIo& io, int fd, uint32_t pixelFormat, const Resolution& size, std::set<int>& rates)
{
    for (uint32_t index = 0; index < kMaxEntries; ++index) {
        v4l2_frmivalenum interval;
        std::memset(&interval, 0, sizeof(interval));
        interval.index = index;
        interval.pixel_format = pixelFormat;
        interval.width = static_cast<uint32_t>(size.width);
        interval.height = static_cast<uint32_t>(size.height);
        if (ioctlRetried(io, fd, VIDIOC_ENUM_FRAMEINTERVALS, &interval) != 0)
            return;
        if (interval.type == V4L2_FRMIVAL_TYPE_DISCRETE) {
            addRate(rates, rateOf(interval.discrete));
            continue;
        }
        // The shortest interval is the fastest rate.
        const int fastest = rateOf(interval.stepwise.min), slowest = std::max(1, rateOf(interval.stepwise.max));
        addRate(rates, fastest);
        addRate(rates, slowest);
        for (int rate : kCommonRates)
            if (rate > slowest && rate < fastest)
                rates.insert(rate);
        return;
    }
}

void sizesOf(DeviceIo& io, int fd, uint32_t pixelFormat, std::set<Resolution>& sizes, std::set<int>& rates)
{
    for (uint32_t index = 0; index < kMaxEntries; ++index) {
        v4l2_frmsizeenum size;
        std::memset(&size, 0, sizeof(size));
        size.index = index;
        size.pixel_format = pixelFormat;
        if (ioctlRetried(io, fd, VIDIOC_ENUM_FRAMESIZES, &size) != 0)
            break;
        if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
            if (plausible(size.discrete.width, size.discrete.height))
                sizes.insert(Resolution(size.discrete.width, size.discrete.height));
            continue;
        }
        const v4l2_frmsize_stepwise& range = size.stepwise;
        const uint32_t stepX = std::max(range.step_width, 1u), stepY = std::max(range.step_height, 1u);
        for (const Resolution& r : kCommonSizes)
            if (r.width >= range.min_width && r.width <= range.max_width && r.height >= range.min_height
                && r.height <= range.max_height && (r.width - range.min_width) % stepX == 0
                && (r.height - range.min_height) % stepY == 0)
                sizes.insert(r);
        if (plausible(range.max_width, range.max_height))
            sizes.insert(Resolution(range.max_width, range.max_height));
        break;
    }
    // A driver that can't enumerate sizes still has a current one.
    if (sizes.empty()) {
        v4l2_format format;
        std::memset(&format, 0, sizeof(format));
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (ioctlRetried(io, fd, VIDIOC_G_FMT, &format) == 0 && format.fmt.pix.pixelformat == pixelFormat
            && plausible(format.fmt.pix.width, format.fmt.pix.height))
            sizes.insert(Resolution(format.fmt.pix.width, format.fmt.pix.height));
    }
    for (const Resolution& r : sizes)
        ratesOf(io, fd, pixelFormat, r, rates);
}

} // namespace

std::string errorText(int error)
{
    char text[128];
    return strerror_r(error, text, sizeof(text));
}

bool isMjpeg(uint32_t pixelFormat) { return pixelFormat == V4L2_PIX_FMT_MJPEG || pixelFormat == V4L2_PIX_FMT_JPEG; }

uint32_t deviceCapabilities(DeviceIo& io, int fd, std::string* card)
{
    v4l2_capability capability;
    std::memset(&capability, 0, sizeof(capability));
    if (ioctlRetried(io, fd, VIDIOC_QUERYCAP, &capability) != 0)
        return 0;
    if (card) {
        const char* text = reinterpret_cast<const char*>(capability.card);
        *card = std::string(text, strnlen(text, sizeof(capability.card)));
    }
    // A node of a multi-node driver says what it does itself.
    return (capability.capabilities & V4L2_CAP_DEVICE_CAPS) ? capability.device_caps : capability.capabilities;
}

DeviceFormats enumerateFormats(DeviceIo& io, int fd)
{
    std::set<Resolution> yuyv, mjpeg;
    std::set<int> rates;
    for (uint32_t index = 0; index < kMaxEntries; ++index) {
        v4l2_fmtdesc format;
        std::memset(&format, 0, sizeof(format));
        format.index = index;
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (ioctlRetried(io, fd, VIDIOC_ENUM_FMT, &format) != 0)
            break;
        if (format.pixelformat == V4L2_PIX_FMT_YUYV)
            sizesOf(io, fd, format.pixelformat, yuyv, rates);
        else if (isMjpeg(format.pixelformat) && mjpeg.empty())
            sizesOf(io, fd, format.pixelformat, mjpeg, rates);
    }
    DeviceFormats out;
    for (const Resolution& r : mjpeg)
        out.sizes[r] = V4L2_PIX_FMT_MJPEG;
    for (const Resolution& r : yuyv)
        out.sizes[r] = V4L2_PIX_FMT_YUYV;
    out.frameRates = rates;
    return out;
}

CameraInfo describeV4L2Device(DeviceIo& io, const std::string& path, const std::string& name)
{
    CameraInfo info;
    info.name = name;
    info.model = "V4L2";
    info.backendArgument = path;
    const int fd = io.open(path.c_str(), O_RDWR | O_NONBLOCK);
    if (fd < 0) {
        const int error = errno;
        FRAMEHUB_LOG(LEVEL_ERROR) << "can't open " << path << ": " << errorText(error) << ".";
        return info;
    }
    const uint32_t caps = deviceCapabilities(io, fd, nullptr);
    if (!(caps & V4L2_CAP_VIDEO_CAPTURE) || !(caps & V4L2_CAP_STREAMING)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << path << " is not a video capture device.";
        io.close(fd);
        return info;
    }
    const DeviceFormats formats = enumerateFormats(io, fd);
    std::set<int> rates = formats.frameRates;
    if (rates.empty()) {
        v4l2_streamparm parameters;
        std::memset(&parameters, 0, sizeof(parameters));
        parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (ioctlRetried(io, fd, VIDIOC_G_PARM, &parameters) == 0)
            addRate(rates, rateOf(parameters.parm.capture.timeperframe));
    }
    io.close(fd);
    if (formats.sizes.empty()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << path << " offers no YUYV (nor MJPEG) format.";
        return info;
    }
    if (rates.empty())
        rates.insert(30);
    for (const auto& entry : formats.sizes)
        info.resolutions.insert(entry.first);
    info.frameRates = rates;
    info.colorSpaces = { COLORSPACE_YUV_422 };
    const Resolution largest = *info.resolutions.rbegin();
    const float vertical = 2.0f
        * std::atan(std::tan(kTypicalHorizontalFieldOfView / 2.0f) * static_cast<float>(largest.height)
            / static_cast<float>(largest.width));
    info.fieldOfView = FieldOfView(kTypicalHorizontalFieldOfView, vertical);
    return info;
}

std::vector<V4L2Device> listV4L2Devices(DeviceIo& io, const std::vector<std::string>& paths)
{
    std::vector<V4L2Device> devices;
    for (const std::string& path : paths) {
        const int fd = io.open(path.c_str(), O_RDWR | O_NONBLOCK);
        if (fd < 0)
            continue;
        V4L2Device device;
        device.path = path;
        const uint32_t caps = deviceCapabilities(io, fd, &device.card);
        io.close(fd);
        // Metadata and output nodes of the same camera are left out.
        if ((caps & V4L2_CAP_VIDEO_CAPTURE) && (caps & V4L2_CAP_STREAMING))
            devices.push_back(device);
    }
    return devices;
}

CameraInfo describeV4L2Device(const std::string& path, const std::string& name)
{
    SystemDeviceIo io;
    return describeV4L2Device(io, path, name);
}

std::vector<V4L2Device> listV4L2Devices()
{
    std::vector<std::pair<long, std::string>> numbered;
    if (DIR* dev = opendir("/dev")) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this call's own
        while (const dirent* entry = readdir(dev)) {
            const char* name = entry->d_name;
            if (std::strncmp(name, "video", 5) != 0 || name[5] == '\0')
                continue;
            char* end = nullptr;
            const long number = std::strtol(name + 5, &end, 10);
            if (*end == '\0')
                numbered.emplace_back(number, std::string("/dev/") + name);
        }
        closedir(dev);
    }
    std::sort(numbered.begin(), numbered.end());
    std::vector<std::string> paths;
    paths.reserve(numbered.size());
    for (const auto& entry : numbered)
        paths.push_back(entry.second);
    SystemDeviceIo io;
    return listV4L2Devices(io, paths);
}

} // namespace FrameHub
} // namespace Kelmo
