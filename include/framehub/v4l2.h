#ifndef FRAMEHUB_V4L2_H
#define FRAMEHUB_V4L2_H

#include <framehub/camera_builder.h>

#include <string>
#include <vector>

namespace Kelmo {
namespace FrameHub {

// Real cameras through Video4Linux2 (model "V4L2"). Sharing a webcam:
//
//   FrameHub hub;
//   hub.addCamera(describeV4L2Device("/dev/video0", "webcam"));
//   std::string me = hub.subscribeCamera("tracker", "webcam", Resolution(320, 240), COLORSPACE_RGB_888, 15);

// Opens the device and describes it: the given name, model "V4L2", the path
// as backend argument, colour space YUV 4:2:2, every frame size it offers in
// YUYV or (decoded in software) MJPEG and every frame rate of those sizes.
// The device can't tell its field of view: a typical webcam's, 60 degrees
// across, is filled in; set the real one for the angular conversions.
// A device that can't be described gets empty sets and a log record; the
// hub's addCamera then refuses the description.
CameraInfo describeV4L2Device(const std::string& path, const std::string& name);

struct V4L2Device {
    std::string path; // "/dev/video0"
    std::string card; // the name the driver gives the device
};

// The video capture devices present under /dev, in the order of their numbers.
std::vector<V4L2Device> listV4L2Devices();

} // namespace FrameHub
} // namespace Kelmo

#endif
