#ifndef FRAMEHUB_SRC_PIPELINE_CAMERA_2D_H
#define FRAMEHUB_SRC_PIPELINE_CAMERA_2D_H

#include "camera/camera.h"

#include <boost/shared_ptr.hpp>

#include <string>

namespace Kelmo {
namespace FrameHub {

// The camera of image sensors: every frame arrives as YUV 4:2:2 and is
// converted in one pass into whatever a subscriber asked for. Back-ends
// supply the device hooks.
//
// The routines take the source, then the destination, read the sizes from
// the buffers and always return true. They trust their sizes: _convertImage
// refuses every size combination that would take one out of its blocks.
//
// Sources: camera_2d.cpp (dispatch), camera_2d_yuv.cpp, camera_2d_rgb.cpp,
// camera_2d_hue.cpp; each routine has a scalar row kernel and, on x86, an
// AVX2 one chosen at run time (camera_2d_simd.h).
class Camera2D : public Camera {
public:
    Camera2D(const std::string& model, const std::string& name);
    ~Camera2D() override;

    bool isColorSpaceValid(const ColorSpace& colorSpace) const override;

    // The routines' argument type.
    typedef boost::shared_ptr<ImageBuffer> Buffer;

    // Luma and chroma.
    static bool convertYUV422toY8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toYuvsameWidth(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toYuvnoScale(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toU8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toV8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toYUV422(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toYYCbCr(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toYUV888(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);

    // Primaries. The noScale variants serve a width ratio of 1.
    static bool convertYUV422toRGB888(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toBGR888(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toR8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toG8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toB8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toRGBnoScale(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toBGRnoScale(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toRgbnoScale(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422torGbnoScale(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422torgBnoScale(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);

    // Hue and saturation.
    static bool convertYUV422toH8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toS8(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toHSY888(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toHSMixed888(
        boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);
    static bool convertYUV422toH2RGB(boost::shared_ptr<ImageBuffer> source, boost::shared_ptr<ImageBuffer> destination);

protected:
    bool _convertImage(const CameraPreferences& preferences, boost::shared_ptr<ImageBuffer> imageBuffer,
        boost::shared_ptr<ImageBuffer> convertedBuffer) override;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
