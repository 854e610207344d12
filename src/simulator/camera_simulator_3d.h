#ifndef FRAMEHUB_SRC_SIMULATOR_CAMERA_SIMULATOR_3D_H
#define FRAMEHUB_SRC_SIMULATOR_CAMERA_SIMULATOR_3D_H

#include "pipeline/camera_3d.h"
#include "simulator/camera_simulator.h"

#include <boost/scoped_ptr.hpp>

#include <cstdint>
#include <string>

namespace Kelmo {
namespace FrameHub {

// A depth camera fed with 16-bit depth and infrared frames by putImage, one
// store for each kind. Depth is the native stream; infrared is an extra
// colour space served from its own store and only resized on its way out.
class CameraSimulator3D : public CameraSimulator<Camera3D> {
public:
    CameraSimulator3D(const std::string& name, const std::string& backendArgument);
    ~CameraSimulator3D() override;

    bool isColorSpaceValid(const ColorSpace& colorSpace) const override;
    bool isExtraColorSpace(const ColorSpace& colorSpace) const override;

    // Resampling of 16-bit samples by the factors 2, 4 and 8, values kept.
    // The destination is a store's block at the camera's resolution; frames
    // whose sizes are not exact multiples are clipped to it.
    bool _reSize(const ImageBuffer& source, uint16_t* destination);
    bool _subSample(uint64_t scale, uint64_t width, uint64_t height, const uint16_t* source, uint16_t* destination);
    bool _overSample(uint64_t scale, uint64_t width, uint64_t height, const uint16_t* source, uint16_t* destination);

protected:
    bool _getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer) override;
    bool _getExtraColorSpaceBuffer(
        const CameraPreferences& preferences, boost::shared_ptr<ImageBuffer> buffer) override;
    bool _putImage(const Resolution& resolution, const ColorSpace& colorSpace, const void* data) override;
    CameraPreferences _getExpectedImageParameters() override;

    void _createDefaultDepthImage();
    void _createDefaultInfraredImage();

    boost::scoped_ptr<ImageBuffer> _depthBuffer;
    boost::scoped_ptr<ImageBuffer> _infraredBuffer;

private:
    // Both readers: default image on a size change, then a copy of the store.
    bool _readStore(ImageBuffer& store, bool infrared, boost::shared_ptr<ImageBuffer> buffer, const char* function);
};

} // namespace FrameHub
} // namespace Kelmo

#endif
