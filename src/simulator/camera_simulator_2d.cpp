#include "simulator/camera_simulator_2d.h"

#include "pipeline/fixed_point.h"

#include "types/framehub_log.h"

#include <lumo/os.h>

#include <cstring>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camerasimulator2d")

namespace {
using namespace fixed;

// Integer BT.601, offset chroma; stored as the low 8 bits, so subtracting
// the chroma zero is adding it.
inline uint8_t lumaOf(const uint8_t* p)
{
    return static_cast<uint8_t>(
        ((kLumaFromR * p[0] + kLumaFromG * p[1] + kLumaFromB * p[2] + kRoundingHalf) >> kFractionBits) + kLumaBlack);
}
inline uint8_t blueChromaOf(const uint8_t* p)
{
    return static_cast<uint8_t>(
        ((kUFromR * p[0] + kUFromG * p[1] + kUFromB * p[2] + kRoundingHalf) >> kFractionBits) - kChromaZero);
}
inline uint8_t redChromaOf(const uint8_t* p)
{
    return static_cast<uint8_t>(
        ((kVFromR * p[0] + kVFromG * p[1] + kVFromB * p[2] + kRoundingHalf) >> kFractionBits) - kChromaZero);
}

// Two pixels sharing a group: both lumas, chroma averaged by truncation.
inline void writePair(const uint8_t* a, const uint8_t* b, uint8_t* out)
{
    out[0] = lumaOf(a);
    out[1] = static_cast<uint8_t>((blueChromaOf(a) + blueChromaOf(b)) >> 1);
    out[2] = lumaOf(b);
    out[3] = static_cast<uint8_t>((redChromaOf(a) + redChromaOf(b)) >> 1);
}

// Walks the outW x outH output pixels of the store in row-major order and
// pairs consecutive ones into 4-byte groups; sourceColumn and sourceRow map
// an output position to the RGB pixel it shows. An even width keeps pairs
// inside a row (the usual case); an odd one pairs across rows as the packed
// layout dictates, and an odd pixel count ends with the Y and U of the last
// pixel alone, so that nothing is written past 2 bytes a pixel.
template <typename ColumnMap, typename RowMap>
void writeYuv422(const uint8_t* __restrict source, uint64_t sourceWidth, uint8_t* __restrict out, uint64_t outW,
    uint64_t outH, ColumnMap sourceColumn, RowMap sourceRow)
{
    const uint64_t stride = sourceWidth * 3;
    if (outW % 2 == 0) {
        for (uint64_t y = 0; y < outH; ++y) {
            const uint8_t* row = source + sourceRow(y) * stride;
            for (uint64_t x = 0; x < outW; x += 2, out += 4)
                writePair(row + sourceColumn(x) * 3, row + sourceColumn(x + 1) * 3, out);
        }
        return;
    }
    const uint8_t* pending = nullptr;
    for (uint64_t y = 0; y < outH; ++y) {
        const uint8_t* row = source + sourceRow(y) * stride;
        for (uint64_t x = 0; x < outW; ++x) {
            const uint8_t* pixel = row + sourceColumn(x) * 3;
            if (!pending) {
                pending = pixel;
            } else {
                writePair(pending, pixel, out);
                out += 4;
                pending = nullptr;
            }
        }
    }
    if (pending) {
        out[0] = lumaOf(pending);
        out[1] = blueChromaOf(pending);
    }
}

} // namespace

CameraSimulator2D::CameraSimulator2D(const std::string& name, const std::string& backendArgument)
    : CameraSimulator<Camera2D>("Simulator2D", name, backendArgument)
    , _simulatorBuffer(new ImageBuffer(name, Resolution(0, 0), COLORSPACE_YUV_422, true))
{
}

CameraSimulator2D::~CameraSimulator2D() { close(); }

bool CameraSimulator2D::_putImage(const Resolution& resolution, const ColorSpace& colorSpace, const void* data)
{
    if (colorSpace != COLORSPACE_RGB_888) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "putImage(): Colorspace not supported. Please use RGB ColorSpace.";
        return false;
    }
    if (!_open()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "putImage(): Can't open the camera device.";
        return false;
    }
    if (!isResolutionValid(resolution)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "putImage(): Unknown resolution from simulator!";
        return false;
    }
    if (!_checkFrame(resolution, data, getColorSpaceDepth(COLORSPACE_YUV_422), "YUV 4:2:2"))
        return false;
    const Resolution target = _currentPreferences.getResolution();

    _stampTakenNow(*_simulatorBuffer);
    _simulatorBuffer->setResolution(target);
    _simulatorBuffer->setColorSpace(_currentPreferences.getColorSpace());

    // A view of the caller's pixels: nothing is copied or kept.
    ImageBuffer frame(getName(), resolution, colorSpace, false);
    frame.setData(static_cast<unsigned char*>(const_cast<void*>(data)));
    return _reSize(frame, _simulatorBuffer->getData());
}

bool CameraSimulator2D::_getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer)
{
    if (_simulatorBuffer->getResolution() != _currentPreferences.getResolution()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "_getDirectRawImageBuffer(): Could not get image for subscriber.\n"
                                     "Please check that the simulator is running.";
        _createDefaultImage();
    }
    if (!buffer) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "_getDirectRawImage(): error trying to find available buffer.";
        return false;
    }
    buffer->setResolution(_currentPreferences.getResolution());
    buffer->setColorSpace(_currentPreferences.getColorSpace());
    buffer->setTimeStamp(_simulatorBuffer->getTimeStamp());
    buffer->setMonotonicTimeStamp(_simulatorBuffer->getMonotonicTimeStamp());
    std::memcpy(buffer->getData(), _simulatorBuffer->getData(), _simulatorBuffer->getSize());
    return true;
}

void CameraSimulator2D::_createDefaultImage() { CameraSimulator<Camera2D>::_createDefaultImage(*_simulatorBuffer); }

CameraPreferences CameraSimulator2D::_getExpectedImageParameters()
{
    // What putImage accepts, not what the store holds.
    return _expectedImageParameters(COLORSPACE_RGB_888, framehubLogCategory);
}

bool CameraSimulator2D::_reSize(const ImageBuffer& source, unsigned char* destination)
{
    if (source.getColorSpace() != COLORSPACE_RGB_888) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "Unsupported colorspace can't resize image. Please use RGB format.";
        return false;
    }
    const Resolution size = source.getResolution();
    const unsigned char* pixels = const_cast<ImageBuffer&>(source).getData();
    uint64_t factor;
    switch (_planResize(size, factor)) {
    case RESIZE_COPY:
        writeYuv422(
            pixels, size.width, destination, size.width, size.height, [](uint64_t x) { return x; },
            [](uint64_t y) { return y; });
        return true;
    case RESIZE_OVERSAMPLE:
        return _overSample(factor, size.width, size.height, pixels, destination);
    case RESIZE_SUBSAMPLE:
        return _subSample(factor, size.width, size.height, pixels, destination);
    default:
        return false;
    }
}

bool CameraSimulator2D::_subSample(
    uint64_t scale, uint64_t width, uint64_t height, const unsigned char* source, unsigned char* destination)
{
    return _subSampleWith([](auto&&... a) { writeYuv422(a...); }, scale, width, height, source, destination);
}

bool CameraSimulator2D::_overSample(
    uint64_t scale, uint64_t width, uint64_t height, const unsigned char* source, unsigned char* destination)
{
    return _overSampleWith([](auto&&... a) { writeYuv422(a...); }, scale, width, height, source, destination);
}

} // namespace FrameHub
} // namespace Kelmo
