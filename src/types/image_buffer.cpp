#include <framehub/image_buffer.h>

#include "types/framehub_log.h"

namespace Kelmo {
namespace FrameHub {

// Registered for completeness; buffers neither log nor throw.
FRAMEHUB_LOG_CATEGORY("vision.framehub.imagebuffer")

ImageBuffer::ImageBuffer(const std::string& name, const Resolution& res, const ColorSpace& cs, bool owns)
    : lockCount(0)
    , data(nullptr)
    , allocatedResolution(res)
    , cameraName(name)
    , resolution(res)
    , colorSpace(cs)
    , timeStamp(-1)
    , fieldOfView(0.0f, 0.0f)
    , ownsData(owns)
    , monotonicTimeStamp(-1)
{
    (void)framehubLogCategory;
}

ImageBuffer::~ImageBuffer()
{
    _freeData();
    data = nullptr;
}

void ImageBuffer::_freeData()
{
    if (data && ownsData) {
        delete[] data;
        data = nullptr;
    }
}

unsigned char* ImageBuffer::getData()
{
    if (data || !ownsData)
        return data;
    data = new unsigned char[allocatedResolution.height * allocatedResolution.width * getColorSpaceDepth(colorSpace)];
    return data;
}

void ImageBuffer::setData(unsigned char* newData)
{
    // Replacing an owned block hands the buffer over to the caller's memory;
    // a buffer that never allocated keeps its flag (and will free newData).
    if (data && ownsData) {
        delete[] data;
        ownsData = false;
    }
    data = newData;
}

bool ImageBuffer::isPreferencesValid(const CameraPreferences& preferences) const
{
    return preferences.getColorSpace() == colorSpace && preferences.getResolution() == resolution;
}

void ImageBuffer::setColorSpace(const ColorSpace& newColorSpace)
{
    if (newColorSpace == colorSpace)
        return;
    if (getColorSpaceDepth(newColorSpace) > getColorSpaceDepth(colorSpace))
        _freeData();
    colorSpace = newColorSpace;
}

void ImageBuffer::setResolution(const Resolution& newResolution)
{
    if (newResolution.width * newResolution.height > allocatedResolution.width * allocatedResolution.height) {
        allocatedResolution.width = std::max(allocatedResolution.width, newResolution.width);
        allocatedResolution.height = std::max(allocatedResolution.height, newResolution.height);
        _freeData();
    }
    resolution = newResolution;
}

Resolution ImageBuffer::getResolution() const { return resolution; }
ColorSpace ImageBuffer::getColorSpace() const { return colorSpace; }
void ImageBuffer::setTimeStamp(int64_t stamp) { timeStamp = stamp; }
int64_t ImageBuffer::getTimeStamp() const { return timeStamp; }
void ImageBuffer::setMonotonicTimeStamp(int64_t stamp) { monotonicTimeStamp = stamp; }
int64_t ImageBuffer::getMonotonicTimeStamp() const { return monotonicTimeStamp; }
FieldOfView ImageBuffer::getFieldOfView() const { return fieldOfView; }
void ImageBuffer::setFielOfView(const FieldOfView& fov) { fieldOfView = fov; }
void ImageBuffer::setCameraName(const std::string& name) { cameraName = name; }
std::string ImageBuffer::getCameraName() const { return cameraName; }

uint64_t ImageBuffer::getSize() const { return resolution.height * resolution.width * getColorSpaceDepth(colorSpace); }

cv::Mat ImageBuffer::imageBufferToCvMat(const ImageBuffer& buffer)
{
    // Wrapping a buffer without a block allocates it, as getData would.
    unsigned char* pixels = const_cast<ImageBuffer&>(buffer).getData();
    const uint64_t depth = getColorSpaceDepth(buffer.colorSpace);
    uint64_t channels = getColorSpaceChannel(buffer.colorSpace);
    if (channels == 0)
        return cv::Mat();
    if (buffer.colorSpace == COLORSPACE_YUV_422)
        channels = 2;

    int elementType;
    switch (depth / channels) {
    case 1:
        elementType = CV_8U;
        break;
    case 2:
        elementType = CV_16U;
        break;
    case 4:
        elementType = CV_32F;
        break;
    default:
        return cv::Mat();
    }
    const int type = CV_MAKETYPE(elementType, static_cast<int>(channels));
    const int rows = static_cast<int>(buffer.resolution.height);
    const int cols = static_cast<int>(buffer.resolution.width);
    return cv::Mat(rows, cols, type, pixels, static_cast<size_t>(cols) * CV_ELEM_SIZE(type));
}

} // namespace FrameHub
} // namespace Kelmo
