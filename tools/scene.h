#ifndef FRAMEHUB_TOOLS_SCENE_H
#define FRAMEHUB_TOOLS_SCENE_H

#include <opencv2/core.hpp>

#include <string>
#include <vector>

// Synthetic pictures for the demo's feeder.
namespace scene {

// A colour test card at time t (seconds), RGB, 8 bits a channel: hue and
// grey ramps, saturated and grey patches, fine lines, moving shapes.
cv::Mat testCard(int width, int height, double t);

// A depth scene in millimetres (16-bit): a floor, a wall and a moving sphere,
// and the matching infrared image (16-bit), at time t.
void depthScene(int width, int height, double t, cv::Mat& depth, cv::Mat& infrared);

// Still images from files, as RGB. Throws std::runtime_error naming a file
// that can't be read.
std::vector<cv::Mat> loadImages(const std::vector<std::string>& files);

} // namespace scene

#endif
