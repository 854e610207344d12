#ifndef FRAMEHUB_SRC_PIPELINE_CAMERA_3D_H
#define FRAMEHUB_SRC_PIPELINE_CAMERA_3D_H

#include "camera/camera.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace Kelmo {
namespace FrameHub {

// The camera of depth sensors: 16-bit depth frames become point clouds,
// radial distances, false colour, 8-bit depth or depth at another size;
// infrared frames are only resized. Back-ends supply the device hooks.
//
// The routines take the source, then the destination, read the sizes from
// the buffers and always return true. They trust their sizes: _convertImage
// refuses every size combination that would take one out of its blocks.
// Three of them use the camera's field of view, hence members.
//
// Sources: camera_3d.cpp (dispatch, table, geometry), camera_3d_convert.cpp.
class Camera3D : public Camera {
public:
    // Model first, then name.
    Camera3D(const std::string& model, const std::string& name);
    ~Camera3D() override;

    bool isColorSpaceValid(const ColorSpace& colorSpace) const override;

    typedef boost::shared_ptr<ImageBuffer> Buffer;

    // Fills _lut for the largest native size and the current field of view.
    bool _buildLUT();
    // Projective (column, row, depth) points to the camera frame, in place.
    bool convertProjectiveToRealWorld(float* points, uint32_t width, uint32_t height);
    // Builds _lut on first use; needs the source no larger than the table.
    bool convertDepthtoDistance(Buffer source, Buffer destination);

    static bool convertDepthtoIJZ(Buffer source, Buffer destination);
    static bool convertDepthtoYuv(Buffer source, Buffer destination);
    static bool convertDepth16toRGB888(Buffer source, Buffer destination);
    static bool convertDepth16toDepth16(Buffer source, Buffer destination);
    static bool convertInfraredtoInfrared(Buffer source, Buffer destination);

protected:
    bool _convertImage(const CameraPreferences& preferences, boost::shared_ptr<ImageBuffer> imageBuffer,
        boost::shared_ptr<ImageBuffer> convertedBuffer) override;

    // One factor per pixel of _lutResolution, row after row; null until the
    // first distance conversion, never rebuilt.
    std::unique_ptr<float[]> _lut;
    // The size the table was built for: the native sizes may change later.
    Resolution _lutResolution;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
