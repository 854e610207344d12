// The fetches of test_framehub.py's round trip, done in C++: writes the
// image's bytes to stdout for the test to compare with what numpy saw.
//   framehub_py_reference rgb|depth|xyz
#include <framehub/frame_hub.h>

#include <cstdio>
#include <cstring>
#include <vector>

using namespace Kelmo::FrameHub;

namespace {

struct Case {
    const char* name;
    const char* model;
    ColorSpace stored, input, wanted;
};

const Case cases[] = {
    { "rgb", "Simulator2D", COLORSPACE_YUV_422, COLORSPACE_RGB_888, COLORSPACE_RGB_888 },
    { "depth", "Simulator3D", COLORSPACE_DEPTH_16, COLORSPACE_DEPTH_16, COLORSPACE_DEPTH_16 },
    { "xyz", "Simulator3D", COLORSPACE_DEPTH_16, COLORSPACE_DEPTH_16, COLORSPACE_XYZ_323232 },
};

// The same patterns as the test's: bytes for 8-bit input, millimetres for depth.
std::vector<unsigned char> pattern(ColorSpace input, uint64_t w, uint64_t h)
{
    std::vector<unsigned char> bytes(w * h * getColorSpaceDepth(input));
    if (input == COLORSPACE_DEPTH_16) {
        for (uint64_t i = 0; i < w * h; ++i) {
            const uint16_t millimetres = static_cast<uint16_t>(500 + (i * 37) % 3000);
            std::memcpy(&bytes[i * 2], &millimetres, 2);
        }
    } else {
        for (uint64_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<unsigned char>(i * 31 + 7);
    }
    return bytes;
}

} // namespace

int main(int argc, char** argv)
{
    for (const Case& c : cases) {
        if (argc != 2 || std::strcmp(argv[1], c.name) != 0)
            continue;
        CameraInfo info;
        info.name = "cam";
        info.model = c.model;
        info.fieldOfView = FieldOfView(1.0f, 0.75f);
        info.resolutions = { { 160, 120 }, { 320, 240 } };
        info.colorSpaces = { c.stored };
        info.frameRates = { 5, 15 };
        FrameHub hub({ info });
        const std::string me = hub.subscribeCamera("ref", "cam", Resolution(320, 240), c.wanted, 15);
        std::vector<unsigned char> input = pattern(c.input, 320, 240);
        hub.putImage("cam", Resolution(320, 240), c.input, input.data());
        boost::shared_ptr<ImageBuffer> image = hub.getImage(me);
        if (!image)
            return 1;
        std::fwrite(image->getData(), 1, image->getSize(), stdout);
        hub.releaseImage(me);
        return 0;
    }
    std::fprintf(stderr, "usage: framehub_py_reference rgb|depth|xyz\n");
    return 2;
}
