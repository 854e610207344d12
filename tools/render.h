#ifndef FRAMEHUB_TOOLS_RENDER_H
#define FRAMEHUB_TOOLS_RENDER_H

#include <framehub/image_buffer.h>

#include <opencv2/core.hpp>

#include <string>
#include <vector>

// Turns images of every colour space into pictures a person can look at.
namespace render {

// A deep copy of what a buffer holds, with its colour space; taken before
// the buffer is released.
struct Snapshot {
    Kelmo::FrameHub::ColorSpace colorSpace = Kelmo::FrameHub::COLORSPACE_UNKNOWN;
    cv::Mat pixels; // the buffer's layout as imageBufferToCvMat gives it
};

Snapshot snapshot(const Kelmo::FrameHub::ImageBuffer& buffer);

// An 8-bit BGR picture of the snapshot: grey for single planes, the three
// channels as they are for HSY and the like, depth in false colour, the
// point cloud seen from the side.
cv::Mat toPicture(const Snapshot& snapshot);

// Labelled tiles in a grid.
cv::Mat contactSheet(const std::vector<cv::Mat>& pictures, const std::vector<std::string>& labels);

} // namespace render

#endif
