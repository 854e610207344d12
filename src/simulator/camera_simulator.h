#ifndef FRAMEHUB_SRC_SIMULATOR_CAMERA_SIMULATOR_H
#define FRAMEHUB_SRC_SIMULATOR_CAMERA_SIMULATOR_H

#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>
#include <framehub/image_buffer.h>

#include <lumo/log.h>

#include <algorithm>
#include <cstdint>
#include <string>

namespace Kelmo {
namespace FrameHub {

// A device that is always there and does nothing: frames come in from
// outside through putImage. T is Camera2D or Camera3D; both are instantiated
// in camera_simulator.cpp.
template <typename T> class CameraSimulator : public T {
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
    bool _checkFrame(
        const Resolution& resolution, const void* data, uint64_t bytesPerPixel, const char* frameKind) const;

    // How a frame of this size reaches the camera's: as it is, enlarged or
    // shrunk by a factor both dimensions agree on, or not at all (factors
    // truncated; whether the factor is 2, 4 or 8 is the resampler's test).
    enum Resize { RESIZE_COPY, RESIZE_OVERSAMPLE, RESIZE_SUBSAMPLE, RESIZE_REFUSED };
    Resize _planResize(const Resolution& frame, uint64_t& factor) const;

    static bool _isResampleFactor(uint64_t scale) { return scale == 2 || scale == 4 || scale == 8; }

    // The two resamplings of a width x height frame into the camera's size;
    // write(source, sourceWidth, destination, columns, rows, columnMap,
    // rowMap) puts each output pixel down from the source pixel the maps
    // give. Shrinking keeps every scale-th pixel of every scale-th row,
    // clipped to the camera's size: with exact multiples that is all of it,
    // otherwise what lies past the camera's size is dropped.
    template <typename Write, typename Pixel, typename Out>
    bool _subSampleWith(
        Write write, uint64_t scale, uint64_t width, uint64_t height, const Pixel* source, Out* destination) const
    {
        if (!_isResampleFactor(scale))
            return false;
        const Resolution target = this->_currentPreferences.getResolution();
        const uint64_t columns = std::min(width / scale, target.width), rows = std::min(height / scale, target.height);
        if (columns == 0 || rows == 0)
            return true;
        write(
            source, width, destination, columns, rows, [scale](uint64_t x) { return x * scale; },
            [scale](uint64_t y) { return y * scale; });
        return true;
    }

    // Enlarging repeats each pixel over a scale x scale block; where the
    // camera's size is no exact multiple, the last column and row of the
    // frame are repeated up to the edge.
    template <typename Write, typename Pixel, typename Out>
    bool _overSampleWith(
        Write write, uint64_t scale, uint64_t width, uint64_t height, const Pixel* source, Out* destination) const
    {
        if (!_isResampleFactor(scale))
            return false;
        if (width == 0 || height == 0)
            return true;
        const Resolution target = this->_currentPreferences.getResolution();
        if (width * scale == target.width && height * scale == target.height) {
            write(
                source, width, destination, target.width, target.height, [scale](uint64_t x) { return x / scale; },
                [scale](uint64_t y) { return y / scale; });
            return true;
        }
        const uint64_t lastColumn = width - 1, lastRow = height - 1;
        write(
            source, width, destination, target.width, target.height,
            [scale, lastColumn](uint64_t x) { return std::min(x / scale, lastColumn); },
            [scale, lastRow](uint64_t y) { return std::min(y / scale, lastRow); });
        return true;
    }

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
