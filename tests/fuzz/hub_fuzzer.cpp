// Turns its input into hub calls with hostile arguments: odd and huge sizes,
// enumerations out of range, NaN angles, empty, unknown and alias names.
// Frames handed to putImage are always as large as the contract requires.
// The only exceptions let through are the builder's, and setDefaultActiveCamera's
// std::out_of_range after a multi-stream subscriber emptied its camera list.
#include "hub_fixture.h"

#include <framehub/frame_hub.h>

#include <kelmoerror/kelmo_error.h>
#include <lumo/log.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Kelmo::FrameHub;

namespace {

// Larger frames are not put: the allocation, not the hub, would be measured.
const uint64_t kMaxPutPixels = 640 * 480;

bool fits(Resolution size)
{
    return size.width <= kMaxPutPixels && size.height <= kMaxPutPixels && size.width * size.height <= kMaxPutPixels;
}

struct Input {
    const uint8_t* data;
    size_t size;
    size_t position = 0;

    bool empty() const { return position >= size; }
    uint8_t byte() { return position < size ? data[position++] : 0; }
    uint32_t word()
    {
        uint32_t w = 0;
        for (int i = 0; i < 4; ++i)
            w = (w << 8) | byte();
        return w;
    }
    template <typename T> const T& pick(const std::vector<T>& choices) { return choices[byte() % choices.size()]; }
};

std::vector<CameraInfo> cameras()
{
    return { simulatorInfo("front", "Simulator2D", { { 160, 120 }, { 320, 240 }, { 640, 480 } }, { COLORSPACE_YUV_422 },
                 { 5, 15, 30 }),
        simulatorInfo("side", "Simulator2D", { { 2, 2 }, { 4, 4 } }, { COLORSPACE_YUV_422 }, { 5, 15, 30 }),
        simulatorInfo("depth", "Simulator3D", { { 80, 60 }, { 160, 120 } }, { COLORSPACE_DEPTH_16 }, { 5, 15, 30 }) };
}

uint64_t dimension(Input& in)
{
    static const std::vector<uint64_t> sizes = { 0, 1, 2, 3, 4, 5, 7, 40, 79, 80, 120, 159, 160, 240, 320, 480, 640,
        641, 1280, 1u << 20, std::numeric_limits<uint32_t>::max(), std::numeric_limits<uint64_t>::max() };
    return in.byte() & 0x80 ? in.word() % 700 : in.pick(sizes);
}

Resolution resolution(Input& in) { return Resolution(dimension(in), dimension(in)); }

// count values drawn one after another.
template <typename Draw> auto several(Input& in, size_t count, Draw draw)
{
    std::vector<typename std::decay<decltype(draw(in))>::type> out;
    while (out.size() < count)
        out.push_back(draw(in));
    return out;
}

// A value of the enumeration, now and then one far out of its range.
template <typename Enum> Enum enumeration(Input& in, int count)
{
    const uint8_t b = in.byte();
    if (b < 230)
        return static_cast<Enum>(b % count);
    const int odd[] = { -1, count, 1000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min() };
    return static_cast<Enum>(odd[b % (sizeof(odd) / sizeof(odd[0]))]);
}

ColorSpace colorSpace(Input& in) { return enumeration<ColorSpace>(in, COLORSPACE_UNKNOWN + 1); }
Parameter parameter(Input& in) { return enumeration<Parameter>(in, PARAMETER_INVALID + 1); }

int number(Input& in)
{
    static const std::vector<int> values
        = { 0, 1, -1, 5, 15, 29, 30, 31, 1000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min() };
    return in.byte() & 0x80 ? static_cast<int>(in.word()) : in.pick(values);
}

std::vector<float> floats(Input& in)
{
    static const std::vector<float> values = { 0.0f, -0.0f, 0.5f, -0.5f, 1.0f, 3.5f, -1e30f, 1e30f,
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::denorm_min() };
    return several(in, in.byte() % 7, [](Input& i) { return i.pick(values); });
}

struct Session {
    FrameHub hub { cameras() };
    std::vector<std::string> names { "", "Default", "front", "side", "depth", "nobody", "front_0", "x_0" };

    const std::string& name(Input& in) { return in.pick(names); }
    std::vector<std::string> nameList(Input& in)
    {
        return several(in, in.byte() % 4, [this](Input& i) { return name(i); });
    }
    void remember(const std::string& subscriber)
    {
        if (!subscriber.empty() && names.size() < 64)
            names.push_back(subscriber);
    }

    void put(const std::string& camera, Resolution size, ColorSpace space, uint8_t fill)
    {
        const uint64_t bytesPerPixel = std::max<uint64_t>(1, getColorSpaceDepth(space));
        std::vector<uint8_t> frame(std::max<uint64_t>(1, size.width * size.height * bytesPerPixel), fill);
        hub.putImage(camera, size, space, frame.data());
    }

    void step(Input& in)
    {
        switch (in.byte() % 24) {
        case 0:
            remember(hub.subscribeCamera(name(in), name(in), resolution(in), colorSpace(in), number(in)));
            break;
        case 1: {
            const std::vector<std::string> list = nameList(in);
            const std::vector<Resolution> sizes = several(in, list.size() + in.byte() % 2, resolution);
            const std::vector<ColorSpace> spaces = several(in, list.size(), colorSpace);
            remember(hub.subscribeCameras(name(in), list, sizes, spaces, number(in)));
            break;
        }
        case 2:
            hub.unsubscribe(name(in));
            break;
        case 3:
        case 4:
            hub.getImage(name(in));
            break;
        case 5:
            hub.releaseImage(name(in));
            break;
        case 6:
            hub.getDirectRawImage(name(in));
            hub.releaseDirectRawImage(name(in));
            break;
        case 7:
            hub.getImages(name(in));
            hub.releaseImages(name(in));
            break;
        case 8:
            hub.getDirectRawImages(name(in));
            hub.releaseDirectRawImages(name(in));
            break;
        case 9:
            hub.setActiveCamera(name(in), name(in));
            break;
        case 10:
            hub.setActiveCameras(name(in), nameList(in));
            break;
        case 11:
            hub.setResolution(name(in), resolution(in));
            hub.setColorSpace(name(in), colorSpace(in));
            break;
        case 12: {
            const std::string& who = name(in);
            hub.setResolutions(who, several(in, in.byte() % 4, resolution));
            hub.setColorSpaces(who, several(in, in.byte() % 4, colorSpace));
            break;
        }
        case 13:
            hub.setFrameRate(name(in), number(in));
            break;
        case 14:
            try {
                hub.setDefaultActiveCamera(name(in));
            } catch (const std::out_of_range&) {
                // By design: a multi-stream subscriber emptied its list.
            }
            break;
        case 15: {
            const std::string& who = name(in);
            hub.getActiveCamera(who);
            hub.getResolution(who);
            hub.getColorSpace(who);
            hub.getFrameRate(who);
            hub.getActiveCameras(who);
            hub.getResolutions(who);
            hub.getColorSpaces(who);
            break;
        }
        case 16: {
            const std::string& camera = name(in);
            const int action = in.byte() % 6;
            if (action == 0)
                hub.openCamera(camera);
            else if (action == 1)
                hub.closeCamera(camera);
            else if (action == 2)
                hub.startCamera(camera);
            else if (action == 3)
                hub.stopCamera(camera);
            else if (action == 4)
                hub.resetCamera(camera);
            else {
                hub.isCameraOpen(camera);
                hub.isCameraStarted(camera);
                hub.getCameraModel(camera);
                hub.getCameraFrameRateRange(camera);
                hub.getCameraResolutionRange(camera);
                hub.getCameraFieldOfView(camera);
            }
            break;
        }
        case 17: {
            const std::string& camera = name(in);
            const Parameter p = parameter(in);
            hub.getCameraParameter(camera, p);
            hub.getCameraParameterInfo(camera, p);
            hub.setCameraParameter(camera, p, number(in));
            if (in.byte() & 1)
                hub.setCameraParameterToDefault(camera, p);
            else
                hub.setAllCameraParametersToDefault(camera);
            break;
        }
        case 18: {
            const std::string& camera = name(in);
            const std::vector<float> values = floats(in);
            hub.getAngularPositionFromImagePosition(camera, values);
            hub.getImagePositionFromAngularPosition(camera, values);
            hub.getAngularSizeFromImageSize(camera, values);
            hub.getImageSizeFromAngularSize(camera, values);
            hub.getImageInfoFromAngularInfo(camera, values);
            hub.getImageInfoFromAngularInfoWithResolution(camera, values, resolution(in));
            break;
        }
        case 19:
        case 20: {
            const Resolution size = resolution(in);
            const ColorSpace space = colorSpace(in);
            if (fits(size)) {
                const uint8_t fill = in.byte();
                put(name(in), size, space, fill);
            }
            break;
        }
        case 21: {
            // Feeding as a well-behaved feeder does, so that images flow.
            const std::string& camera = name(in);
            const CameraPreferences expected = hub.getExpectedImageParameters(camera);
            if (fits(expected.getResolution()))
                put(camera, expected.getResolution(), expected.getColorSpace(), in.byte());
            break;
        }
        case 22: {
            CameraInfo info = cameras()[in.byte() % 3];
            info.name = name(in);
            info.fieldOfView = FieldOfView(floats(in).empty() ? NAN : 0.5f, in.byte() & 1 ? INFINITY : 0.4f);
            if (in.byte() & 1)
                info.resolutions.insert(resolution(in));
            if (in.byte() & 1)
                info.frameRates.insert(number(in));
            try {
                hub.addCamera(info);
            } catch (const Kelmo::KelmoError&) {
                // By design: the builder refuses what it can't build.
            }
            break;
        }
        default:
            hub.getSubscribers();
            hub.getCameraIndexes();
            hub.getDefaultActiveCamera();
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Every refusal logs; the records are part of what runs, not of what is read.
    lumo::log::setLevel(5);
    lumo::log::setHandler([](const lumo::log::Record&) {});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input in { data, size };
    Session session;
    for (int steps = 0; steps < 200 && !in.empty(); ++steps)
        session.step(in);
    return 0;
}
