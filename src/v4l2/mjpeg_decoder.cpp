#include "v4l2/mjpeg_decoder.h"

#include <turbojpeg.h>

#include <cmath>

namespace Kelmo {
namespace FrameHub {

namespace {

// One packed row from planar rows; chroma sample of pixel pair k sits at
// column (2k) >> chromaShift (0 for 4:4:4, 1 for 4:2:2 and 4:2:0, 2 for 4:1:1).
void packRow(const uint8_t* __restrict y, const uint8_t* __restrict u, const uint8_t* __restrict v,
    uint8_t* __restrict out, uint64_t pairs, unsigned chromaShift, const uint8_t* luma, const uint8_t* chroma)
{
    for (uint64_t k = 0; k < pairs; ++k, out += 4) {
        const uint64_t c = (2 * k) >> chromaShift;
        out[0] = luma[y[2 * k]];
        out[1] = chroma[u[c]];
        out[2] = luma[y[2 * k + 1]];
        out[3] = chroma[v[c]];
    }
}

void packGrayRow(const uint8_t* __restrict y, uint8_t* __restrict out, uint64_t pairs, const uint8_t* luma)
{
    for (uint64_t k = 0; k < pairs; ++k, out += 4) {
        out[0] = luma[y[2 * k]];
        out[1] = 128;
        out[2] = luma[y[2 * k + 1]];
        out[3] = 128;
    }
}

} // namespace

MjpegDecoder::MjpegDecoder()
    : _handle(tjInitDecompress())
{
    for (int i = 0; i < 256; ++i) {
        _studioLuma[i] = static_cast<uint8_t>(std::lround(16 + i * 219.0 / 255.0));
        _studioChroma[i] = static_cast<uint8_t>(std::lround(128 + (i - 128) * 224.0 / 255.0));
    }
}

MjpegDecoder::~MjpegDecoder()
{
    if (_handle)
        tjDestroy(static_cast<tjhandle>(_handle));
}

// A decoder that failed half-way misreads the next frame: start afresh.
bool MjpegDecoder::_failed(std::string& error)
{
    error = tjGetErrorStr2(static_cast<tjhandle>(_handle));
    tjDestroy(static_cast<tjhandle>(_handle));
    _handle = tjInitDecompress();
    return false;
}

bool MjpegDecoder::decode(
    const uint8_t* jpeg, size_t size, uint64_t width, uint64_t height, uint8_t* yuyv, std::string& error)
{
    tjhandle handle = static_cast<tjhandle>(_handle);
    if (!handle) {
        error = "no JPEG decoder";
        return false;
    }
    if (!jpeg || size == 0 || size > static_cast<size_t>(~0UL >> 1)) {
        error = "empty frame";
        return false;
    }
    int w = 0, h = 0, subsampling = -1, colours = -1;
    if (tjDecompressHeader3(handle, jpeg, static_cast<unsigned long>(size), &w, &h, &subsampling, &colours) != 0)
        return _failed(error);
    if (static_cast<uint64_t>(w) != width || static_cast<uint64_t>(h) != height || width % 2 != 0) {
        error = "frame of " + std::to_string(w) + "x" + std::to_string(h) + " in a stream of " + std::to_string(width)
            + "x" + std::to_string(height);
        return false;
    }
    unsigned shift;
    switch (subsampling) {
    case TJSAMP_444:
    case TJSAMP_440:
        shift = 0;
        break;
    case TJSAMP_422:
    case TJSAMP_420:
        shift = 1;
        break;
    case TJSAMP_411:
        shift = 2;
        break;
    case TJSAMP_GRAY:
        shift = 0;
        break;
    default:
        error = "unknown chroma subsampling";
        return false;
    }

    const unsigned long bytes = tjBufSizeYUV2(w, 1, h, subsampling);
    if (bytes == static_cast<unsigned long>(-1))
        return _failed(error);
    if (_planes.size() < bytes)
        _planes.resize(bytes);
    const bool gray = subsampling == TJSAMP_GRAY;
    int strides[3] = { tjPlaneWidth(0, w, subsampling), gray ? 0 : tjPlaneWidth(1, w, subsampling),
        gray ? 0 : tjPlaneWidth(2, w, subsampling) };
    const int chromaHeight = gray ? 0 : tjPlaneHeight(1, h, subsampling);
    unsigned char* planes[3] = { _planes.data(), nullptr, nullptr };
    if (!gray) {
        planes[1] = planes[0] + static_cast<size_t>(strides[0]) * h;
        planes[2] = planes[1] + static_cast<size_t>(strides[1]) * chromaHeight;
    }
    // A truncated frame is only a warning to the decoder; here it is a drop.
    if (tjDecompressToYUVPlanes(
            handle, jpeg, static_cast<unsigned long>(size), planes, w, strides, h, TJFLAG_STOPONWARNING)
        != 0) {
        return _failed(error);
    }

    const uint64_t pairs = width / 2, rowBytes = width * 2;
    for (uint64_t row = 0; row < height; ++row) {
        const uint8_t* y = planes[0] + row * strides[0];
        uint8_t* out = yuyv + row * rowBytes;
        if (gray) {
            packGrayRow(y, out, pairs, _studioLuma);
            continue;
        }
        const uint64_t chromaRow = row * static_cast<uint64_t>(chromaHeight) / height;
        packRow(y, planes[1] + chromaRow * strides[1], planes[2] + chromaRow * strides[2], out, pairs, shift,
            _studioLuma, _studioChroma);
    }
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
