#include "simulator/camera_simulator_3d.h"

#include "types/framehub_log.h"

#include <lumo/os.h>

#include <algorithm>
#include <cstring>

namespace Kelmo {
namespace FrameHub {

FRAMEHUB_LOG_CATEGORY("vision.framehub.camerasimulator3d")

namespace {
// Writes outW x outH samples, row after row, each taken from the source at
// the position the maps give.
template <typename ColumnMap, typename RowMap>
void resample(const uint16_t* __restrict source, uint64_t sourceWidth, uint16_t* __restrict out, uint64_t outW,
    uint64_t outH, ColumnMap sourceColumn, RowMap sourceRow)
{
    for (uint64_t y = 0; y < outH; ++y) {
        const uint16_t* row = source + sourceRow(y) * sourceWidth;
        for (uint64_t x = 0; x < outW; ++x)
            *out++ = row[sourceColumn(x)];
    }
}
} // namespace

CameraSimulator3D::CameraSimulator3D(const std::string& name, const std::string& backendArgument)
    : CameraSimulator<Camera3D>("Simulator3D", name, backendArgument)
    , _depthBuffer(new ImageBuffer(name, Resolution(0, 0), COLORSPACE_DEPTH_16, true))
    , _infraredBuffer(new ImageBuffer(name, Resolution(0, 0), COLORSPACE_INFRARED_16, true))
{
}

CameraSimulator3D::~CameraSimulator3D()
{
    close();
    _infraredBuffer.reset();
    _depthBuffer.reset();
}

bool CameraSimulator3D::isExtraColorSpace(const ColorSpace& colorSpace) const
{
    return colorSpace == COLORSPACE_INFRARED_16;
}

bool CameraSimulator3D::isColorSpaceValid(const ColorSpace& colorSpace) const
{
    return Camera3D::isColorSpaceValid(colorSpace) || isExtraColorSpace(colorSpace);
}

bool CameraSimulator3D::_putImage(const Resolution& resolution, const ColorSpace& colorSpace, const void* data)
{
    if (colorSpace != COLORSPACE_INFRARED_16 && colorSpace != COLORSPACE_DEPTH_16) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "putImage(): Colorspace not supported. Please use Depth ColorSpace.";
        return false;
    }
    if (!isResolutionValid(resolution)) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "putImage(): Unknown resolution from simulator!";
        return false;
    }
    if (!_open()) {
        FRAMEHUB_LOG(LEVEL_ERROR) << "putImage(): Can't open the camera device.";
        return false;
    }
    if (!_checkFrame(resolution, data, getColorSpaceDepth(COLORSPACE_DEPTH_16), "16-bit"))
        return false;
    const Resolution target = _currentPreferences.getResolution();

    ImageBuffer frame(getName(), resolution, colorSpace, false);
    frame.setData(static_cast<unsigned char*>(const_cast<void*>(data)));

    ImageBuffer& store = colorSpace == COLORSPACE_DEPTH_16 ? *_depthBuffer : *_infraredBuffer;
    _stampTakenNow(store);
    store.setResolution(target);
    // The depth store follows the camera's colour space, the infrared one is
    // always infrared.
    store.setColorSpace(
        colorSpace == COLORSPACE_DEPTH_16 ? _currentPreferences.getColorSpace() : COLORSPACE_INFRARED_16);
    return _reSize(frame, reinterpret_cast<uint16_t*>(store.getData()));
}

bool CameraSimulator3D::_readStore(
    ImageBuffer& store, bool infrared, boost::shared_ptr<ImageBuffer> buffer, const char* function)
{
    if (store.getResolution() != _currentPreferences.getResolution()) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << "_getDirectRawImageBuffer(): Could not get image for subscriber.\n"
                                                  "Please check that the simulator is running.";
        if (infrared)
            _createDefaultInfraredImage();
        else
            _createDefaultDepthImage();
    }
    if (!buffer) {
        FRAMEHUB_LOG_AS(LEVEL_ERROR, function) << "_getDirectRawImage(): error trying to find available buffer.";
        return false;
    }
    buffer->setResolution(_currentPreferences.getResolution());
    buffer->setColorSpace(infrared ? COLORSPACE_INFRARED_16 : _currentPreferences.getColorSpace());
    buffer->setTimeStamp(store.getTimeStamp());
    buffer->setMonotonicTimeStamp(store.getMonotonicTimeStamp());
    // Both are 2 bytes a sample at the camera's size; never copy past the smaller.
    std::memcpy(buffer->getData(), store.getData(), std::min(store.getSize(), buffer->getSize()));
    return true;
}

bool CameraSimulator3D::_getDirectRawImage(boost::shared_ptr<ImageBuffer> buffer)
{
    return _readStore(*_depthBuffer, false, buffer, __func__);
}

bool CameraSimulator3D::_getExtraColorSpaceBuffer(const CameraPreferences&, boost::shared_ptr<ImageBuffer> buffer)
{
    return _readStore(*_infraredBuffer, true, buffer, __func__);
}

void CameraSimulator3D::_createDefaultDepthImage() { _createDefaultImage(*_depthBuffer); }

// The camera's colour space, not infrared: only a put makes this store infrared.
void CameraSimulator3D::_createDefaultInfraredImage() { _createDefaultImage(*_infraredBuffer); }

CameraPreferences CameraSimulator3D::_getExpectedImageParameters()
{
    // The camera's own colour space, as it stands.
    return _expectedImageParameters(_currentPreferences.getColorSpace(), framehubLogCategory);
}

bool CameraSimulator3D::_reSize(const ImageBuffer& source, uint16_t* destination)
{
    const Resolution size = source.getResolution();
    const uint16_t* samples = reinterpret_cast<const uint16_t*>(const_cast<ImageBuffer&>(source).getData());
    uint64_t factor;
    switch (_planResize(size, factor)) {
    case RESIZE_COPY:
        std::memcpy(destination, samples, size.width * size.height * sizeof(uint16_t));
        return true;
    case RESIZE_OVERSAMPLE:
        return _overSample(factor, size.width, size.height, samples, destination);
    case RESIZE_SUBSAMPLE:
        return _subSample(factor, size.width, size.height, samples, destination);
    default:
        return false;
    }
}

bool CameraSimulator3D::_subSample(
    uint64_t scale, uint64_t width, uint64_t height, const uint16_t* source, uint16_t* destination)
{
    return _subSampleWith([](auto&&... a) { resample(a...); }, scale, width, height, source, destination);
}

bool CameraSimulator3D::_overSample(
    uint64_t scale, uint64_t width, uint64_t height, const uint16_t* source, uint16_t* destination)
{
    return _overSampleWith([](auto&&... a) { resample(a...); }, scale, width, height, source, destination);
}

} // namespace FrameHub
} // namespace Kelmo
