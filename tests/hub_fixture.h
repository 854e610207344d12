#ifndef FRAMEHUB_TESTS_HUB_FIXTURE_H
#define FRAMEHUB_TESTS_HUB_FIXTURE_H

#include <framehub/camera_builder.h>
#include <framehub/frame_hub.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

// Descriptions and frames shared by the tests and the benchmarks.
inline Kelmo::FrameHub::CameraInfo simulatorInfo(const std::string& name, const std::string& model,
    std::set<Kelmo::FrameHub::Resolution> resolutions, std::set<Kelmo::FrameHub::ColorSpace> colorSpaces,
    std::set<int> frameRates)
{
    Kelmo::FrameHub::CameraInfo info;
    info.name = name;
    info.model = model;
    info.fieldOfView = Kelmo::FrameHub::FieldOfView(1.0f, 0.75f);
    info.resolutions = std::move(resolutions);
    info.colorSpaces = std::move(colorSpaces);
    info.frameRates = std::move(frameRates);
    return info;
}

inline Kelmo::FrameHub::CameraInfo simulator2D(const std::string& name)
{
    using namespace Kelmo::FrameHub;
    return simulatorInfo(name, "Simulator2D", { { 160, 120 }, { 320, 240 }, { 640, 480 } },
        { COLORSPACE_YUV_422, COLORSPACE_RGB_888 }, { 5, 15, 30 });
}

// An RGB frame that changes with its sequence number.
inline std::vector<uint8_t> rgbFrame(uint64_t w, uint64_t h, unsigned sequence)
{
    std::vector<uint8_t> rgb(w * h * 3);
    for (uint64_t i = 0; i < w * h; ++i) {
        rgb[i * 3] = static_cast<uint8_t>(i + sequence);
        rgb[i * 3 + 1] = static_cast<uint8_t>(i / w + 3 * sequence);
        rgb[i * 3 + 2] = static_cast<uint8_t>(i * 7);
    }
    return rgb;
}

// Puts a frame at the size the camera expects now.
inline bool feed(Kelmo::FrameHub::FrameHub& hub, const std::string& camera, unsigned sequence)
{
    Kelmo::FrameHub::CameraPreferences expected = hub.getExpectedImageParameters(camera);
    const Kelmo::FrameHub::Resolution size = expected.getResolution();
    std::vector<uint8_t> rgb = rgbFrame(size.width, size.height, sequence);
    return hub.putImage(camera, size, expected.getColorSpace(), rgb.data());
}

#endif
