#ifndef FRAMEHUB_SRC_V4L2_MJPEG_DECODER_H
#define FRAMEHUB_SRC_V4L2_MJPEG_DECODER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Kelmo {
namespace FrameHub {

// Turns the JPEG frames of an MJPEG stream into packed YUV 4:2:2 (Y0 U Y1 V),
// in the studio range the rest of the pipeline expects. One per camera; the
// scratch planes are kept between frames.
class MjpegDecoder {
public:
    MjpegDecoder();
    ~MjpegDecoder();

    MjpegDecoder(const MjpegDecoder&) = delete;
    MjpegDecoder& operator=(const MjpegDecoder&) = delete;

    // Writes width * height * 2 bytes. False, with the reason in `error`, for
    // a truncated or corrupt frame, or one of another size.
    bool decode(const uint8_t* jpeg, size_t size, uint64_t width, uint64_t height, uint8_t* yuyv, std::string& error);

private:
    bool _failed(std::string& error);

    void* _handle;
    std::vector<uint8_t> _planes;
    // JPEG samples are full range; the pipeline's YUV is 16..235 / 16..240.
    uint8_t _studioLuma[256];
    uint8_t _studioChroma[256];
};

} // namespace FrameHub
} // namespace Kelmo

#endif
