#ifndef FRAMEHUB_SRC_V4L2_V4L2_ENUMERATE_H
#define FRAMEHUB_SRC_V4L2_V4L2_ENUMERATE_H

#include <framehub/camera_builder.h>
#include <framehub/frame_hub_type.h>
#include <framehub/v4l2.h>

#include "v4l2/device_io.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Kelmo {
namespace FrameHub {

// What an open device offers: each frame size with the pixel format that
// serves it (YUYV where both do, else MJPEG) and the frame rates of them all.
struct DeviceFormats {
    std::map<Resolution, uint32_t> sizes;
    std::set<int> frameRates;
};

// The device's capabilities, preferring the per-node ones.
uint32_t deviceCapabilities(DeviceIo& io, int fd, std::string* card);
DeviceFormats enumerateFormats(DeviceIo& io, int fd);
bool isMjpeg(uint32_t pixelFormat);

// The public functions, on a device of the caller's.
CameraInfo describeV4L2Device(DeviceIo& io, const std::string& path, const std::string& name);
std::vector<V4L2Device> listV4L2Devices(DeviceIo& io, const std::vector<std::string>& paths);

// The driver's reason as text.
std::string errorText(int error);

} // namespace FrameHub
} // namespace Kelmo

#endif
