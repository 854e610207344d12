#include "pipeline/camera_2d.h"
#include "pipeline/camera_2d_simd.h"

#include "types/framehub_log.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <iterator>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camera2d")

namespace {
// Byte counts that stick at the maximum instead of wrapping, so that an
// absurd size can only fail a comparison.
struct Bytes {
    Bytes(uint64_t value)
        : n(value)
    {
    }
    uint64_t n;
};

inline Bytes operator+(Bytes a, Bytes b)
{
    uint64_t sum;
    return __builtin_add_overflow(a.n, b.n, &sum) ? UINT64_MAX : sum;
}

inline Bytes operator*(Bytes a, Bytes b)
{
    uint64_t product;
    return __builtin_mul_overflow(a.n, b.n, &product) ? UINT64_MAX : product;
}

// How far into each block a routine reaches, in bytes from the start.
struct Reach {
    Bytes source;
    Bytes destination;
};

// W, H of the source, w, h of the destination, r = W / w. w and r are at
// least 1 here.
struct Sizes {
    uint64_t W, H, w, h, r;
    uint64_t pairs() const { return (w + 1) / 2; }
};

// Rows of a given step, the last of which reaches extent bytes.
inline Bytes span(uint64_t rows, Bytes step, Bytes extent)
{
    return rows == 0 ? Bytes(0) : Bytes(rows - 1) * step + extent;
}

// Each function below mirrors the loops of its routine, paths included.

Reach yuv422Reach(const Sizes& s)
{
    if (s.W == s.w) {
        const Bytes copied = Bytes(2) * s.w * s.h;
        return { copied.n / 8 * 8, copied.n / 8 * 8 };
    }
    if (s.r == 1)
        return { span(s.h, Bytes(2) * s.W, Bytes(2) * s.w), Bytes(2) * s.w * s.h };
    // Macro-pixels A at o and B at o + 2r, for o < 2W: bounded by the source row.
    const uint64_t row = (Bytes(2) * s.W).n;
    const uint64_t group = (Bytes(4) * s.r).n;
    const uint64_t count = row / group + (row % group != 0);
    const uint64_t last = count - 1;
    return { span(s.h, Bytes(2) * s.W * s.r, Bytes(4) * s.r * last + Bytes(2) * s.r + 4), Bytes(4) * count * s.h };
}

Reach yuv888Reach(const Sizes& s)
{
    return { span(s.h, Bytes(2) * s.W * s.r, Bytes(4) * s.r * (s.pairs() - 1) + 4), Bytes(6) * s.pairs() * s.h };
}

Reach y8Reach(const Sizes& s)
{
    const Bytes pixels = Bytes(s.w) * s.h;
    if (s.W == s.w)
        return { pixels.n == 0 ? Bytes(0) : Bytes(2) * (pixels.n - 1) + 1, pixels };
    if (s.r == 1)
        return { span(s.h, Bytes(2) * s.W, Bytes(2) * s.w), pixels };
    const Bytes step = Bytes(2) * s.r * s.w + Bytes(2) * s.W * (s.r - 1);
    return { span(s.h, step, Bytes(2) * s.r * (s.w - 1) + 1), pixels };
}

// U rows start at j w, so only the last row spills for an odd w; V writes on.
Reach u8Reach(const Sizes& s)
{
    const Bytes written = s.h == 0 ? Bytes(0) : Bytes(s.h - 1) * s.w + Bytes(2) * s.pairs();
    return { span(s.h, Bytes(2) * s.r * s.r * s.w, Bytes(4) * s.r * (s.pairs() - 1) + Bytes(2) * s.r), written };
}

Reach v8Reach(const Sizes& s)
{
    return { span(s.h, Bytes(2) * s.r * s.r * s.w, Bytes(4) * s.r * (s.pairs() - 1) + Bytes(2) * s.r + 2),
        Bytes(2) * s.pairs() * s.h };
}

Reach yycbcrReach(const Sizes& s)
{
    const uint64_t words = s.w / 2;
    if (words == 0)
        return { 0, 0 };
    return { span(s.h, Bytes(s.W / 2) * 4 * s.r, Bytes(4) * s.r * (words - 1) + 4), Bytes(4) * words * s.h };
}

template <uint64_t bytesPerPixel> Reach hueReach(const Sizes& s)
{
    const Bytes written
        = s.h == 0 ? Bytes(0) : Bytes(s.h - 1) * s.w * bytesPerPixel + Bytes(2) * s.pairs() * bytesPerPixel;
    return { span(s.h, Bytes(2) * s.w * s.r * s.r, Bytes(4) * s.r * (s.pairs() - 1) + 4), written };
}

Reach downscaleReach(const Sizes& s, uint64_t bytesPerPixel)
{
    return { span(s.h, Bytes(2) * s.W * s.r, Bytes(2) * s.r * (s.w - 1) + 4), Bytes(s.w) * s.h * bytesPerPixel };
}

// The library conversion reads and writes past odd widths and throws on an
// empty image, and its matrices count in int: all of that is out of reach.
// It writes into the destination only when the sizes agree.
Reach colorReach(const Sizes& s)
{
    if (s.r != 1)
        return downscaleReach(s, 3);
    if (s.W % 2 != 0 || s.H == 0 || s.W > INT_MAX || s.H > INT_MAX || s.h > INT_MAX)
        return { UINT64_MAX, UINT64_MAX };
    const bool same = s.W == s.w && s.H == s.h;
    return { Bytes(2) * s.W * s.H, same ? Bytes(3) * s.w * s.h : Bytes(0) };
}

Reach primaryReach(const Sizes& s)
{
    if (s.r != 1)
        return downscaleReach(s, 1);
    return { span(s.h, Bytes(2) * s.W, Bytes(4) * (s.pairs() - 1) + 4), Bytes(2) * s.pairs() * s.h };
}

typedef bool (*Routine)(boost::shared_ptr<ImageBuffer>, boost::shared_ptr<ImageBuffer>);

struct Route {
    ColorSpace target;
    Routine convert;
    Reach (*reach)(const Sizes&);
};

// ARGB, LAB and the 3D spaces have no route.
const Route routes[] = {
    { COLORSPACE_YUV_422, &Camera2D::convertYUV422toYUV422, &yuv422Reach },
    { COLORSPACE_YUV_888, &Camera2D::convertYUV422toYUV888, &yuv888Reach },
    { COLORSPACE_HSY_888, &Camera2D::convertYUV422toHSY888, &hueReach<3> },
    { COLORSPACE_HSMIXED_888, &Camera2D::convertYUV422toHSMixed888, &hueReach<3> },
    { COLORSPACE_Y_8, &Camera2D::convertYUV422toY8, &y8Reach },
    { COLORSPACE_U_8, &Camera2D::convertYUV422toU8, &u8Reach },
    { COLORSPACE_V_8, &Camera2D::convertYUV422toV8, &v8Reach },
    { COLORSPACE_H_8, &Camera2D::convertYUV422toH8, &hueReach<1> },
    { COLORSPACE_S_8, &Camera2D::convertYUV422toS8, &hueReach<1> },
    { COLORSPACE_RGB_888, &Camera2D::convertYUV422toRGB888, &colorReach },
    { COLORSPACE_BGR_888, &Camera2D::convertYUV422toBGR888, &colorReach },
    { COLORSPACE_R_8, &Camera2D::convertYUV422toR8, &primaryReach },
    { COLORSPACE_G_8, &Camera2D::convertYUV422toG8, &primaryReach },
    { COLORSPACE_B_8, &Camera2D::convertYUV422toB8, &primaryReach },
    { COLORSPACE_YYCBCR_8888, &Camera2D::convertYUV422toYYCbCr, &yycbcrReach },
    { COLORSPACE_H2RGB_888, &Camera2D::convertYUV422toH2RGB, &hueReach<3> },
};

// A block size that overflowed cannot be real.
inline bool within(Bytes need, Bytes have) { return have.n != UINT64_MAX && need.n <= have.n; }

std::atomic<bool> vectorSwitch(true);
std::atomic<bool> avx512Switch(true);

bool cpuHasVectorPaths()
{
#ifdef FRAMEHUB_VECTOR
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
#else
    return false;
#endif
}

bool cpuHasAvx512Paths()
{
#ifdef FRAMEHUB_VECTOR
    __builtin_cpu_init();
    return cpuHasVectorPaths() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw")
        && __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi")
        && __builtin_cpu_supports("avx512vnni");
#else
    return false;
#endif
}

} // namespace

bool simd::supported()
{
    static const bool available = cpuHasVectorPaths();
    return available;
}

bool simd::enabled() { return supported() && vectorSwitch.load(std::memory_order_relaxed); }

bool simd::setEnabled(bool on) { return vectorSwitch.exchange(on); }

bool simd::avx512Supported()
{
    static const bool available = cpuHasAvx512Paths();
    return available;
}

bool simd::avx512Enabled() { return enabled() && avx512Supported() && avx512Switch.load(std::memory_order_relaxed); }

bool simd::setAvx512Enabled(bool on) { return avx512Switch.exchange(on); }

Camera2D::Camera2D(const std::string& model, const std::string& name)
    : Camera(model, name)
{
}

Camera2D::~Camera2D() { }

bool Camera2D::isColorSpaceValid(const ColorSpace& colorSpace) const
{
    // 0 to 17 except ARGB (10); LAB passes here though nothing converts to it.
    const unsigned value = static_cast<unsigned>(colorSpace);
    return value <= 17 && ((0x3FBFFu >> value) & 1u) != 0;
}

bool Camera2D::_convertImage(const CameraPreferences& preferences, boost::shared_ptr<ImageBuffer> imageBuffer,
    boost::shared_ptr<ImageBuffer> convertedBuffer)
{
    // Stamped before anything can fail, so a refusal leaves the requested
    // format and the source's time behind; the pixels are then stale.
    if (!_stampConvertedBuffer(preferences, imageBuffer, convertedBuffer, framehubLogCategory,
            "_convertImage(): the imageBuffer doesn't exist or is corrupted",
            "_convertImage(): the convertedBuffer doesn't exist or is corrupted"))
        return false;

    const ColorSpace input = imageBuffer->getColorSpace();
    if (input == COLORSPACE_RGB_888 || input == COLORSPACE_BGR_888) {
        // Retired inputs, told apart from ones that never existed.
        FRAMEHUB_LOG(LEVEL_ERROR) << "_convertImage(): Color space of the input buffer is not supported anymore.";
        return false;
    }
    if (input != COLORSPACE_YUV_422) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "_convertImage(): Color space of the input buffer is not supported.";
        return false;
    }

    const ColorSpace target = convertedBuffer->getColorSpace();
    const Route* route
        = std::find_if(std::begin(routes), std::end(routes), [target](const Route& r) { return r.target == target; });
    if (route == std::end(routes)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "_convertImage(): Conversion currently not supported.";
        return false;
    }

    // The routines divide by w and need W >= w; sizes are not otherwise
    // negotiated against each other, so check them before any pixel moves.
    const Resolution in = imageBuffer->getResolution();
    const Resolution out = convertedBuffer->getResolution();
    if (out.width == 0 || in.width / out.width == 0) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "_convertImage(): Invalid destination width " << out.width
                                  << " for a source of width " << in.width << ".";
        return false;
    }
    const Sizes sizes = { in.width, in.height, out.width, out.height, in.width / out.width };
    const Reach reach = route->reach(sizes);
    if (!within(reach.source, Bytes(2) * in.width * in.height)
        || !within(reach.destination, Bytes(out.width) * out.height * getColorSpaceDepth(target))) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "_convertImage(): Invalid destination size " << out.width << "x" << out.height
                                  << " for a source of size " << in.width << "x" << in.height << " in "
                                  << getColorSpaceName(target) << ".";
        return false;
    }

    route->convert(imageBuffer, convertedBuffer);
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
