#ifndef FRAMEHUB_IMAGE_BUFFER_H
#define FRAMEHUB_IMAGE_BUFFER_H

#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>

#include <opencv2/core/core.hpp>

#include <cstdint>
#include <string>

namespace Kelmo {
namespace FrameHub {

// A pixel block with the metadata of the image it holds. The block is
// allocated on the first getData and kept across shrinking format changes.
// Unsynchronised: the camera rings and locks protect it.
class ImageBuffer {
public:
    ImageBuffer(
        const std::string& cameraName, const Resolution& resolution, const ColorSpace& colorSpace, bool ownsData);
    ~ImageBuffer();

    ImageBuffer(const ImageBuffer&) = delete;
    ImageBuffer& operator=(const ImageBuffer&) = delete;

    unsigned char* getData();
    // Frees an owned block and hands the buffer over to the caller's memory.
    void setData(unsigned char* data);

    bool isPreferencesValid(const CameraPreferences& preferences) const;

    void setColorSpace(const ColorSpace& colorSpace);
    void setResolution(const Resolution& resolution);
    Resolution getResolution() const;
    ColorSpace getColorSpace() const;

    void setTimeStamp(int64_t timeStamp);
    int64_t getTimeStamp() const;

    // When the frame was taken, in microseconds of a clock that never steps
    // (lumo::os::getmonotonictime). The cameras set it and judge freshness by
    // it, so a wall clock stepped back or forth neither freezes nor starves
    // the images; -1 until a frame is stamped.
    void setMonotonicTimeStamp(int64_t timeStamp);
    int64_t getMonotonicTimeStamp() const;

    FieldOfView getFieldOfView() const;
    void setFielOfView(const FieldOfView& fieldOfView);

    void setCameraName(const std::string& cameraName);
    std::string getCameraName() const;

    // Bytes of the current image, not of the block.
    uint64_t getSize() const;

    // A header over the block: no copy, owns nothing.
    static cv::Mat imageBufferToCvMat(const ImageBuffer& buffer);

    // Holders of the buffer; only the camera rings touch it.
    uint64_t lockCount;

private:
    void _freeData();

    unsigned char* data;
    Resolution allocatedResolution;
    std::string cameraName;
    Resolution resolution;
    ColorSpace colorSpace;
    int64_t timeStamp;
    FieldOfView fieldOfView;
    bool ownsData;
    int64_t monotonicTimeStamp;
};

} // namespace FrameHub
} // namespace Kelmo

#endif
