#ifndef FRAMEHUB_FRAME_HUB_TYPE_H
#define FRAMEHUB_FRAME_HUB_TYPE_H

#include <cstdint>
#include <string>

namespace Kelmo {
namespace FrameHub {

// The numbers are public: pipelines use them as bit positions and ranges.
// A fixed underlying type: any number a client casts in is a valid value to test.
enum ColorSpace : int {
    COLORSPACE_YUV_422 = 0,
    COLORSPACE_YUV_888 = 1,
    COLORSPACE_HSY_888 = 2,
    COLORSPACE_HSMIXED_888 = 3,
    COLORSPACE_Y_8 = 4,
    COLORSPACE_U_8 = 5,
    COLORSPACE_V_8 = 6,
    COLORSPACE_H_8 = 7,
    COLORSPACE_S_8 = 8,
    COLORSPACE_RGB_888 = 9,
    COLORSPACE_ARGB_8888 = 10,
    COLORSPACE_BGR_888 = 11,
    COLORSPACE_R_8 = 12,
    COLORSPACE_G_8 = 13,
    COLORSPACE_B_8 = 14,
    COLORSPACE_YYCBCR_8888 = 15,
    COLORSPACE_H2RGB_888 = 16,
    COLORSPACE_LAB_888 = 17,
    COLORSPACE_INFRARED_16 = 18,
    COLORSPACE_DEPTH_16 = 19,
    COLORSPACE_XYZ_323232 = 20,
    COLORSPACE_DISTANCE_32 = 21,
    COLORSPACE_UNKNOWN = 22
};

enum Parameter : int {
    PARAMETER_BRIGHTNESS = 0,
    PARAMETER_CONTRAST = 1,
    PARAMETER_SATURATION = 2,
    PARAMETER_HUE = 3,
    PARAMETER_RED_CHROMA = 4,
    PARAMETER_BLUE_CHROMA = 5,
    PARAMETER_GAIN = 6,
    PARAMETER_HORIZONTAL_FLIP = 7,
    PARAMETER_VERTICAL_FLIP = 8,
    PARAMETER_LENS_X = 9,
    PARAMETER_LENS_Y = 10,
    PARAMETER_AUTO_FOCUS = 11,
    PARAMETER_AUTO_EXPOSITION = 12,
    PARAMETER_AUTO_WHITE_BALANCE = 13,
    PARAMETER_AUTO_GAIN = 14,
    PARAMETER_BUFFER_SIZE = 15,
    PARAMETER_EXPOSURE = 16,
    PARAMETER_SET_DEFAULT_PARAMS = 17,
    PARAMETER_EXPOSURE_CORRECTION = 18,
    PARAMETER_EXPOSURE_ALGORITHM = 19,
    PARAMETER_SHARPNESS = 20,
    PARAMETER_AUTO_WHITE_BALANCE_GREEN_GAIN = 21,
    PARAMETER_AUTO_BLACK_LEVEL_COMPENSATION = 22,
    PARAMETER_AUTO_BLACK_LEVEL_COMPENSATION_STABLE_RANGE = 23,
    PARAMETER_AUTO_BLACK_LEVEL_TARGET = 24,
    PARAMETER_BLACK_LEVEL_COMPENSATION_BLUE = 25,
    PARAMETER_BLACK_LEVEL_COMPENSATION_RED = 26,
    PARAMETER_BLACK_LEVEL_COMPENSATION_GREEN_BLUE = 27,
    PARAMETER_BLACK_LEVEL_COMPENSATION_GREEN_RED = 28,
    PARAMETER_WHITE_BALANCE = 29,
    PARAMETER_BACK_LIGHT_COMPENSATION = 30,
    PARAMETER_KEEP_ALIVE = 31,
    PARAMETER_DEPTH_CONFIDENCE_THRESHOLD = 32,
    PARAMETER_DEPTH_FAST_FILTER = 33,
    PARAMETER_TEMPERATURE = 34,
    PARAMETER_AVERAGE_LUMINANCE = 35,
    PARAMETER_INVALID = 36
};

struct Resolution {
    Resolution()
        : width(0)
        , height(0)
    {
    }
    Resolution(uint64_t w, uint64_t h)
        : width(w)
        , height(h)
    {
    }

    uint64_t width;
    uint64_t height;
};

inline bool operator==(const Resolution& a, const Resolution& b) { return a.width == b.width && a.height == b.height; }

inline bool operator!=(const Resolution& a, const Resolution& b) { return !(a == b); }

// Width first, then height. For the sets cameras are described with (sizes
// that grow in both fields together) the first element is the smallest and
// the last the largest in both fields.
inline bool operator<(const Resolution& a, const Resolution& b)
{
    return a.width != b.width ? a.width < b.width : a.height < b.height;
}

// Full opening angles in radians.
struct FieldOfView {
    FieldOfView()
        : horizontal(0.0f)
        , vertical(0.0f)
    {
    }
    FieldOfView(float h, float v)
        : horizontal(h)
        , vertical(v)
    {
    }

    float horizontal;
    float vertical;
};

struct ParameterInfo {
    int32_t minimum;
    int32_t maximum;
    int32_t step;
    int32_t defaultValue;
};

// What a parameter read returns when it has no answer.
const int INVALID_PARAMETER_VALUE = 0xDEAD404;

std::string getColorSpaceName(ColorSpace colorSpace);
uint64_t getColorSpaceDepth(ColorSpace colorSpace);
uint64_t getColorSpaceChannel(ColorSpace colorSpace);
std::string getParameterName(Parameter parameter);

} // namespace FrameHub
} // namespace Kelmo

#endif
