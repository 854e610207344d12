#ifndef FRAMEHUB_SRC_SIMULATOR_CAMERA_SIMULATOR_2D_H
#define FRAMEHUB_SRC_SIMULATOR_CAMERA_SIMULATOR_2D_H

#include "pipeline/camera_2d.h"
#include "simulator/camera_simulator.h"

#include <boost/scoped_ptr.hpp>

#include <cstdint>
#include <string>

namespace Kelmo {
namespace FrameHub {

// A colour camera fed with RGB frames by putImage. Each frame is turned into
// YUV 4:2:2 at the camera's resolution and kept as the one newest frame.
class CameraSimulator2D : public CameraSimulator<Camera2D> {
public:
    CameraSimulator2D(const std::string& name, const std::string& backendArgument);
    ~CameraSimulator2D() override;

    // Resampling by the factors 2, 4 and 8 with RGB to YUV 4:2:2 in the same
    // pass. The destination is the store's block at the camera's resolution;
    // frames whose sizes are not exact multiples are clipped to it.
    bool _reSize(const ImageBuffer& source, unsigned char* destination);
    bool _subSample(
        uint64_t scale, uint64_t width, uint64_t height, const unsigned char* source, unsigned char* destination);
    bool _overSample(
        uint64_t scale, uint64_t width, uint64_t height, const unsigned char* source, unsigned char* destination);

protected:
    bool _getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer) override;
    bool _putImage(const Resolution& resolution, const ColorSpace& colorSpace, const void* data) override;
    CameraPreferences _getExpectedImageParameters() override;

    void _createDefaultImage();

    boost::scoped_ptr<ImageBuffer> _simulatorBuffer;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
