#ifndef FRAMEHUB_SRC_SIMULATOR_CAMERA_SIMULATOR_H
#define FRAMEHUB_SRC_SIMULATOR_CAMERA_SIMULATOR_H

#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>
#include <framehub/image_buffer.h>

#include <lumo/log.h>

#include <cstdint>
#include <string>

namespace Kelmo {
namespace FrameHub {

// A device that is always there and does nothing: frames come in from
// outside through putImage. T is Camera2D or Camera3D; both are instantiated
// in camera_simulator.cpp.
template <typename T>
class CameraSimulator : public T {
public:
    // backendArgument is accepted and ignored: there is no device to address.
    CameraSimulator(const std::string& model, const std::string& name, const std::string& backendArgument);
    ~CameraSimulator() override;

protected:
    bool _initDevice() override;
    bool _releaseDevice() override;
    bool _startStreaming() override;
    bool _stopStreaming() override;
    // Stops and restarts around the change, so a resize leaves it started.
    bool _setResolution(const Resolution& resolution) override;
    // A simulator delivers in the colour space its description names first.
    bool _setColorSpace(const ColorSpace& colorSpace) override;
    // Clamped to the native limits; nothing is paced by it.
    bool _setFrameRate(int frameRate) override;

    // The putImage refusals both simulators add before a store is touched:
    // no pixels, an empty frame or camera size (the resampling factors would
    // divide by zero), or a camera colour space whose stores don't hold
    // bytesPerPixel bytes a pixel. Logs and returns false on each.
    bool _checkFrame(const Resolution& resolution, const void* data, uint64_t bytesPerPixel,
                     const char* frameKind) const;

    // How a frame of this size reaches the camera's: as it is, enlarged or
    // shrunk by a factor both dimensions agree on, or not at all (factors
    // truncated; whether the factor is 2, 4 or 8 is the resampler's test).
    enum Resize { RESIZE_COPY, RESIZE_OVERSAMPLE, RESIZE_SUBSAMPLE, RESIZE_REFUSED };
    Resize _planResize(const Resolution& frame, uint64_t& factor) const;

    // A store's default image: the camera's size and colour space, all zero
    // bytes, time stamp 0.
    void _createDefaultImage(ImageBuffer& store) const;

    // Opens the camera and answers with its size and rate and the colour
    // space a feeder must put; the unset preferences if it won't open (logged
    // in the simulator's own category).
    CameraPreferences _expectedImageParameters(ColorSpace colorSpace, lumo::log::CategoryType category);
};

} // namespace FrameHub
} // namespace Kelmo

#endif
