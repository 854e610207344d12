#include "pipeline/camera_3d.h"

#include "types/framehub_log.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <new>
#include <set>
#include <vector>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camera3d")

namespace {
// Counts that stick at the maximum instead of wrapping, so that an absurd
// size can only fail a comparison.
inline uint64_t mul(uint64_t a, uint64_t b)
{
    uint64_t product;
    return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
}

inline uint64_t add(uint64_t a, uint64_t b)
{
    uint64_t sum;
    return __builtin_add_overflow(a, b, &sum) ? UINT64_MAX : sum;
}

enum class Routine { Depth8, FalseColour, PointCloud, Distance, Resize };

struct Route {
    ColorSpace source;
    ColorSpace target;
    Routine routine;
};

const Route routes[] = {
    { COLORSPACE_DEPTH_16, COLORSPACE_Y_8, Routine::Depth8 },
    { COLORSPACE_DEPTH_16, COLORSPACE_R_8, Routine::Depth8 },
    { COLORSPACE_DEPTH_16, COLORSPACE_G_8, Routine::Depth8 },
    { COLORSPACE_DEPTH_16, COLORSPACE_B_8, Routine::Depth8 },
    { COLORSPACE_DEPTH_16, COLORSPACE_RGB_888, Routine::FalseColour },
    { COLORSPACE_DEPTH_16, COLORSPACE_DEPTH_16, Routine::Resize },
    { COLORSPACE_DEPTH_16, COLORSPACE_XYZ_323232, Routine::PointCloud },
    { COLORSPACE_DEPTH_16, COLORSPACE_DISTANCE_32, Routine::Distance },
    { COLORSPACE_INFRARED_16, COLORSPACE_INFRARED_16, Routine::Resize },
};

enum class Fit { Ok, BadWidth, BadSize, BadTable };

// Mirrors the reach of each routine. in and out are in pixels, table is the
// distance table's size; both blocks hold at least their image.
Fit fits(Routine routine, const Resolution& in, const Resolution& out, uint64_t outDepth, const Resolution& table)
{
    const uint64_t W = in.width, H = in.height, w = out.width, h = out.height;
    if (w == 0)
        return Fit::BadWidth;
    if (mul(mul(W, H), 2) == UINT64_MAX || mul(mul(w, h), outDepth) == UINT64_MAX)
        return Fit::BadSize;

    if (routine == Routine::Resize) {
        // Matrices count in int, and the library throws on an empty size.
        const bool countable = mul(W, 2) <= INT_MAX && mul(w, 2) <= INT_MAX && H <= INT_MAX && h <= INT_MAX;
        return W != 0 && H != 0 && h != 0 && countable ? Fit::Ok : Fit::BadSize;
    }

    const uint64_t r = W / w;
    if (r == 0)
        return Fit::BadWidth;
    if (h == 0)
        return Fit::Ok;
    // Columns r k stay below W since r w <= W; only the rows can run out.
    if (routine != Routine::Distance) {
        if (mul(r, h - 1) >= H)
            return Fit::BadSize;
        // The point cloud pass counts points in 32 bits.
        if (routine == Routine::PointCloud && (w > UINT32_MAX || h > UINT32_MAX))
            return Fit::BadSize;
        return Fit::Ok;
    }
    // The distance walk steps r w + (r - 1) W per row, over the source and
    // the table alike, whatever the table's own row length.
    const uint64_t rowStep = add(mul(r, w), mul(r - 1, W));
    const uint64_t last = add(mul(h - 1, rowStep), mul(r, w - 1));
    if (last >= W * H)
        return Fit::BadSize;
    const uint64_t cells = mul(table.width, table.height);
    if (cells == UINT64_MAX || last >= cells)
        return Fit::BadTable;
    return Fit::Ok;
}

// The last of the native sizes; none for a camera not described yet.
Resolution largest(const std::set<Resolution>& sizes) { return sizes.empty() ? Resolution(0, 0) : *sizes.rbegin(); }

} // namespace

Camera3D::Camera3D(const std::string& model, const std::string& name)
    : Camera(model, name)
{
}

Camera3D::~Camera3D() { }

bool Camera3D::isColorSpaceValid(const ColorSpace& colorSpace) const
{
    // Y_8, RGB_888, R_8, G_8, B_8, DEPTH_16, XYZ_323232, DISTANCE_32.
    const unsigned value = static_cast<unsigned>(colorSpace);
    return value < 32 && ((0x387210u >> value) & 1u) != 0;
}

bool Camera3D::_buildLUT()
{
    const Resolution size = largest(_nativelySupportedResolutions);
    const uint64_t A = size.width, B = size.height;
    const FieldOfView fov = getFieldOfView();

    uint64_t cells;
    if (__builtin_mul_overflow(A, B, &cells))
        throw std::bad_array_new_length();
    std::unique_ptr<float[]> table(new float[cells]);
    // Separable: one cosine per column, one per row.
    std::vector<float> column(A);
    for (uint64_t i = 0; i < A; ++i)
        column[i] = cosf(((static_cast<float>(i) + 0.5f) / static_cast<float>(A) - 0.5f) * fov.horizontal);

    // Beyond this factor the product with a sample no longer fits the 32-bit
    // integer the distance is truncated to; only a field of view near half
    // a turn or more reaches it.
    const float limit = 32767.0f;
    for (uint64_t j = 0; j < B; ++j) {
        const float cj = cosf(((static_cast<float>(j) + 0.5f) / static_cast<float>(B) - 0.5f) * fov.vertical);
        float* __restrict row = table.get() + j * A;
        for (uint64_t i = 0; i < A; ++i) {
            float factor = 1.0f / (column[i] * cj);
            if (!(std::fabs(factor) <= limit))
                factor = std::isnan(factor) ? 0.0f : std::copysign(limit, factor);
            row[i] = factor;
        }
    }
    _lut = std::move(table);
    _lutResolution = size;
    return true;
}

bool Camera3D::convertProjectiveToRealWorld(float* points, uint32_t width, uint32_t height)
{
    const FieldOfView fov = getFieldOfView();
    const float sx = 2.0f * tanf(fov.horizontal * 0.5f);
    const float sy = 2.0f * tanf(fov.vertical * 0.5f);
    const uint64_t count = static_cast<uint64_t>(width) * height;
    if (count == 0)
        return true;

    const float fw = static_cast<float>(width);
    const float fh = static_cast<float>(height);
    float* __restrict p = points;
    for (uint64_t n = 0; n < count; ++n, p += 3) {
        const float x = p[0] / fw;
        const float y = p[1] / fh;
        const float z = p[2];
        p[0] = z;
        p[1] = -((x - 0.5f) * z * sx);
        p[2] = (0.5f - y) * z * sy;
    }
    return true;
}

bool Camera3D::_convertImage(const CameraPreferences& preferences, boost::shared_ptr<ImageBuffer> imageBuffer,
    boost::shared_ptr<ImageBuffer> convertedBuffer)
{
    // Stamped before anything can fail: a refusal leaves the requested
    // format behind, and a buffer passed twice is restamped before the
    // same-buffer test. Restamping may free a block, so no pixel pointer is
    // held across it.
    if (!_stampConvertedBuffer(preferences, imageBuffer, convertedBuffer, framehubLogCategory,
            "_convertImage(): The imageBuffer doesn't exist or is corrupted",
            "_convertImage(): The convertedBuffer doesn't exist or is corrupted"))
        return false;

    const ColorSpace input = imageBuffer->getColorSpace();
    if (input != COLORSPACE_DEPTH_16 && input != COLORSPACE_INFRARED_16) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "convertImage(): A camera 3D request a Depth or Infrared ColorSpace as input.";
        return false;
    }
    if (imageBuffer == convertedBuffer) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "convertImage(): Source and destination buffer must not be the same.";
        return false;
    }

    const ColorSpace target = preferences.getColorSpace();
    const Route* route = std::find_if(
        std::begin(routes), std::end(routes), [&](const Route& r) { return r.source == input && r.target == target; });
    if (route == std::end(routes)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "convert(): Conversion currently not supported.";
        return false;
    }

    // Nothing negotiates the destination against the source or the table,
    // so check every reach before any pixel moves.
    const Resolution in = imageBuffer->getResolution();
    const Resolution out = convertedBuffer->getResolution();
    const Resolution table = _lut ? _lutResolution : largest(_nativelySupportedResolutions);
    switch (fits(route->routine, in, out, getColorSpaceDepth(target), table)) {
    case Fit::Ok:
        break;
    case Fit::BadWidth:
        FRAMEHUB_LOG(LEVEL_ERROR) << "convertImage(): Invalid destination width " << out.width
                                  << " for a source of width " << in.width << ".";
        return false;
    case Fit::BadSize:
        FRAMEHUB_LOG(LEVEL_ERROR) << "convertImage(): Invalid destination size " << out.width << "x" << out.height
                                  << " for a source of size " << in.width << "x" << in.height << " in "
                                  << getColorSpaceName(target) << ".";
        return false;
    case Fit::BadTable:
        FRAMEHUB_LOG(LEVEL_ERROR) << "convertImage(): Invalid destination size " << out.width << "x" << out.height
                                  << " for a source of size " << in.width << "x" << in.height
                                  << " and a distance table of size " << table.width << "x" << table.height << ".";
        return false;
    }

    switch (route->routine) {
    case Routine::Depth8:
        convertDepthtoYuv(imageBuffer, convertedBuffer);
        break;
    case Routine::FalseColour:
        convertDepth16toRGB888(imageBuffer, convertedBuffer);
        break;
    case Routine::PointCloud:
        convertDepthtoIJZ(imageBuffer, convertedBuffer);
        convertProjectiveToRealWorld(reinterpret_cast<float*>(convertedBuffer->getData()),
            static_cast<uint32_t>(out.width), static_cast<uint32_t>(out.height));
        break;
    case Routine::Distance:
        convertDepthtoDistance(imageBuffer, convertedBuffer);
        break;
    case Routine::Resize:
        if (input == COLORSPACE_DEPTH_16)
            convertDepth16toDepth16(imageBuffer, convertedBuffer);
        else
            convertInfraredtoInfrared(imageBuffer, convertedBuffer);
        break;
    }
    return true;
}

} // namespace FrameHub
} // namespace Kelmo
