// Per-frame depth and infrared routines. Samples are 16-bit in host order;
// the striding routines read sample r k of source row r j for destination
// pixel (k, j), r being the integer width ratio, and average nothing.
#include "pipeline/camera_3d.h"

#include <opencv2/imgproc.hpp>

#include <cstdint>
#include <type_traits>

namespace Kelmo {
namespace FrameHub {

namespace {

typedef uint64_t Size;

struct Frame {
    const uint16_t* source;
    Size W, w, h, r;
};

Frame frameOf(ImageBuffer& source, const ImageBuffer& destination)
{
    const Resolution in = source.getResolution();
    const Resolution out = destination.getResolution();
    return { reinterpret_cast<const uint16_t*>(source.getData()), in.width, out.width, out.height,
        in.width / out.width };
}

// Rows take the stride as a template argument: 1, the same-size case, lets
// the compiler read contiguous samples; 0 stands for the frame's own r.
template <Size R> inline Size strideOf(Size r) { return R ? R : r; }

// Blocks of a fixed count vectorise at -O2, where an open count does not.
const Size kBlock = 16;

// Offset, shift, keep the low byte: no upper clamp, 4496 wraps to 0.
inline uint8_t depth8(uint16_t d)
{
    const int32_t v = static_cast<int32_t>(d) - 400;
    return static_cast<uint8_t>((v < 0 ? 0 : v) >> 4);
}

template <Size R> void depth8Row(const uint16_t* __restrict src, uint8_t* __restrict dst, Size n, Size r)
{
    const Size s = strideOf<R>(r);
    Size k = 0;
    for (; k + kBlock <= n; k += kBlock)
        for (Size i = k; i < k + kBlock; ++i)
            dst[i] = depth8(src[s * i]);
    for (; k < n; ++k)
        dst[k] = depth8(src[s * k]);
}

// Every candidate is computed and the result picked with masks: samples
// fall in each range at random, and a branch per range mispredicts. All
// intermediates stay within int for any 16-bit sample.
inline void falseColour(uint16_t d, int32_t& red, int32_t& green, int32_t& blue)
{
    const float x = static_cast<float>(d) / 4095.0f;
    const float shifted = x - 0.12f;
    const float y = shifted * 1.1363636f;
    const float t = 1.0f - y;
    const float p = t * t * t;
    const float q = y * y;
    // The three masks exclude each other: a zero sample is also too near.
    const int32_t none = -static_cast<int32_t>(d == 0);
    const int32_t beyond = -static_cast<int32_t>(x > 1.0f);
    const int32_t grey = -static_cast<int32_t>(shifted < 0.0f) & ~none;
    const int32_t keep = ~(none | beyond | grey);
    const int32_t fill = 85 & grey;
    red = (static_cast<int32_t>(255.0f * p) & keep) | fill;
    green = (static_cast<int32_t>(255.0f * (1.0f - (p + q))) & keep) | fill;
    blue = (static_cast<int32_t>(255.0f * q) & keep) | fill | (255 & beyond);
}

inline void interleave(const int32_t* red, const int32_t* green, const int32_t* blue, uint8_t* __restrict dst, Size n)
{
    for (Size i = 0; i < n; ++i) {
        dst[3 * i + 0] = static_cast<uint8_t>(red[i]);
        dst[3 * i + 1] = static_cast<uint8_t>(green[i]);
        dst[3 * i + 2] = static_cast<uint8_t>(blue[i]);
    }
}

// Colours of a block are computed into planes, which vectorises, and then
// interleaved, which does not.
template <Size R> void falseColourRow(const uint16_t* __restrict src, uint8_t* __restrict dst, Size n, Size r)
{
    const Size s = strideOf<R>(r);
    int32_t red[kBlock], green[kBlock], blue[kBlock];
    Size k = 0;
    for (; k + kBlock <= n; k += kBlock) {
        for (Size i = 0; i < kBlock; ++i)
            falseColour(src[s * (k + i)], red[i], green[i], blue[i]);
        interleave(red, green, blue, dst + 3 * k, kBlock);
    }
    for (; k < n; ++k) {
        falseColour(src[s * k], red[0], green[0], blue[0]);
        interleave(red, green, blue, dst + 3 * k, 1);
    }
}

template <Size R> void pointRow(const uint16_t* __restrict src, float* __restrict dst, Size n, Size r, float row)
{
    const Size s = strideOf<R>(r);
    for (Size k = 0; k < n; ++k) {
        dst[3 * k + 0] = static_cast<float>(k);
        dst[3 * k + 1] = row;
        dst[3 * k + 2] = static_cast<float>(src[s * k]);
    }
}

// Half up, truncated to 32 bits, low 16 bits kept: 65536 and more wrap.
// The table's factors are bounded so that the conversion is defined.
inline uint16_t distance(uint16_t d, float factor)
{
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): this half-up form defines the bytes
    return static_cast<uint16_t>(static_cast<int32_t>(static_cast<float>(d) * factor + 0.5f));
}

template <Size R>
void distanceRow(const uint16_t* __restrict src, const float* __restrict lut, uint16_t* __restrict dst, Size n, Size r)
{
    const Size s = strideOf<R>(r);
    Size k = 0;
    for (; k + kBlock <= n; k += kBlock)
        for (Size i = k; i < k + kBlock; ++i)
            dst[i] = distance(src[s * i], lut[s * i]);
    for (; k < n; ++k)
        dst[k] = distance(src[s * k], lut[s * k]);
}

// Runs rows<1> for a ratio of 1 and rows<0> otherwise, chosen once a frame.
template <typename Rows> void byStride(Size r, Rows rows)
{
    if (r == 1)
        rows(std::integral_constant<Size, 1>());
    else
        rows(std::integral_constant<Size, 0>());
}

// Nearest neighbour at any ratio, enlarging too. Both matrices are headers
// over the blocks, of equal type, so the library writes in place.
void resizeNearest(ImageBuffer& source, ImageBuffer& destination)
{
    const cv::Mat in = ImageBuffer::imageBufferToCvMat(source);
    cv::Mat out = ImageBuffer::imageBufferToCvMat(destination);
    cv::resize(in, out, cv::Size(out.cols, out.rows), 0, 0, cv::INTER_NEAREST);
}

} // namespace

bool Camera3D::convertDepthtoYuv(Buffer source, Buffer destination)
{
    const Frame f = frameOf(*source, *destination);
    uint8_t* dst = destination->getData();
    byStride(f.r, [&](auto R) {
        for (Size j = 0; j < f.h; ++j)
            depth8Row<R>(f.source + f.r * j * f.W, dst + j * f.w, f.w, f.r);
    });
    return true;
}

bool Camera3D::convertDepth16toRGB888(Buffer source, Buffer destination)
{
    const Frame f = frameOf(*source, *destination);
    uint8_t* dst = destination->getData();
    byStride(f.r, [&](auto R) {
        for (Size j = 0; j < f.h; ++j)
            falseColourRow<R>(f.source + f.r * j * f.W, dst + 3 * j * f.w, f.w, f.r);
    });
    return true;
}

bool Camera3D::convertDepthtoIJZ(Buffer source, Buffer destination)
{
    const Frame f = frameOf(*source, *destination);
    float* dst = reinterpret_cast<float*>(destination->getData());
    byStride(f.r, [&](auto R) {
        for (Size j = 0; j < f.h; ++j)
            pointRow<R>(f.source + f.r * j * f.W, dst + 3 * j * f.w, f.w, f.r, static_cast<float>(j));
    });
    return true;
}

bool Camera3D::convertDepthtoDistance(Buffer source, Buffer destination)
{
    if (!_lut)
        _buildLUT();
    const Frame f = frameOf(*source, *destination);
    // The table is walked with the source's steps, not resampled to its size.
    const Size rowStep = f.r * f.w + (f.r - 1) * f.W;
    const float* lut = _lut.get();
    uint16_t* dst = reinterpret_cast<uint16_t*>(destination->getData());
    byStride(f.r, [&](auto R) {
        for (Size j = 0; j < f.h; ++j)
            distanceRow<R>(f.source + j * rowStep, lut + j * rowStep, dst + j * f.w, f.w, f.r);
    });
    return true;
}

bool Camera3D::convertDepth16toDepth16(Buffer source, Buffer destination)
{
    resizeNearest(*source, *destination);
    return true;
}

bool Camera3D::convertInfraredtoInfrared(Buffer source, Buffer destination)
{
    resizeNearest(*source, *destination);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
