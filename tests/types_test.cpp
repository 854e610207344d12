#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>

#include <gtest/gtest.h>

#include <limits>
#include <set>

using namespace Kelmo::FrameHub;

namespace {

struct ColorSpaceRow {
    ColorSpace value;
    int number;
    const char* name;
    uint64_t depth;
    uint64_t channels;
};

const ColorSpaceRow kColorSpaces[] = {
    { COLORSPACE_YUV_422, 0, "COLORSPACE_YUV_422", 2, 3 },
    { COLORSPACE_YUV_888, 1, "COLORSPACE_YUV_888", 3, 3 },
    { COLORSPACE_HSY_888, 2, "COLORSPACE_HSY_888", 3, 3 },
    { COLORSPACE_HSMIXED_888, 3, "COLORSPACE_HSMIXED_888", 3, 3 },
    { COLORSPACE_Y_8, 4, "COLORSPACE_Y_8", 1, 1 },
    { COLORSPACE_U_8, 5, "COLORSPACE_U_8", 1, 1 },
    { COLORSPACE_V_8, 6, "COLORSPACE_V_8", 1, 1 },
    { COLORSPACE_H_8, 7, "COLORSPACE_H_8", 1, 1 },
    { COLORSPACE_S_8, 8, "COLORSPACE_S_8", 1, 1 },
    { COLORSPACE_RGB_888, 9, "COLORSPACE_RGB_888", 3, 3 },
    { COLORSPACE_ARGB_8888, 10, "COLORSPACE_ARGB_8888", 4, 4 },
    { COLORSPACE_BGR_888, 11, "COLORSPACE_BGR_888", 3, 3 },
    { COLORSPACE_R_8, 12, "COLORSPACE_R_8", 1, 1 },
    { COLORSPACE_G_8, 13, "COLORSPACE_G_8", 1, 1 },
    { COLORSPACE_B_8, 14, "COLORSPACE_B_8", 1, 1 },
    { COLORSPACE_YYCBCR_8888, 15, "COLORSPACE_YYCBCR_8888", 4, 4 },
    { COLORSPACE_H2RGB_888, 16, "COLORSPACE_H2RGB_888", 3, 3 },
    { COLORSPACE_LAB_888, 17, "COLORSPACE_LAB_888", 3, 3 },
    { COLORSPACE_INFRARED_16, 18, "COLORSPACE_INFRARED_16", 2, 1 },
    { COLORSPACE_DEPTH_16, 19, "COLORSPACE_DEPTH_16", 2, 1 },
    { COLORSPACE_XYZ_323232, 20, "COLORSPACE_XYZ_323232", 12, 3 },
    { COLORSPACE_DISTANCE_32, 21, "COLORSPACE_DISTANCE_32", 4, 1 },
    { COLORSPACE_UNKNOWN, 22, "COLORSPACE_UNKNOWN", 0, 0 },
};

TEST(Vocabulary, ColorSpaceTable)
{
    for (const ColorSpaceRow& row : kColorSpaces) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(static_cast<int>(row.value), row.number);
        EXPECT_EQ(getColorSpaceName(row.value), row.name);
        EXPECT_EQ(getColorSpaceDepth(row.value), row.depth);
        EXPECT_EQ(getColorSpaceChannel(row.value), row.channels);
    }
}

TEST(Vocabulary, ParameterNamesAreTheIdentifiers)
{
    const char* names[] = {
        "PARAMETER_BRIGHTNESS",
        "PARAMETER_CONTRAST",
        "PARAMETER_SATURATION",
        "PARAMETER_HUE",
        "PARAMETER_RED_CHROMA",
        "PARAMETER_BLUE_CHROMA",
        "PARAMETER_GAIN",
        "PARAMETER_HORIZONTAL_FLIP",
        "PARAMETER_VERTICAL_FLIP",
        "PARAMETER_LENS_X",
        "PARAMETER_LENS_Y",
        "PARAMETER_AUTO_FOCUS",
        "PARAMETER_AUTO_EXPOSITION",
        "PARAMETER_AUTO_WHITE_BALANCE",
        "PARAMETER_AUTO_GAIN",
        "PARAMETER_BUFFER_SIZE",
        "PARAMETER_EXPOSURE",
        "PARAMETER_SET_DEFAULT_PARAMS",
        "PARAMETER_EXPOSURE_CORRECTION",
        "PARAMETER_EXPOSURE_ALGORITHM",
        "PARAMETER_SHARPNESS",
        "PARAMETER_AUTO_WHITE_BALANCE_GREEN_GAIN",
        "PARAMETER_AUTO_BLACK_LEVEL_COMPENSATION",
        "PARAMETER_AUTO_BLACK_LEVEL_COMPENSATION_STABLE_RANGE",
        "PARAMETER_AUTO_BLACK_LEVEL_TARGET",
        "PARAMETER_BLACK_LEVEL_COMPENSATION_BLUE",
        "PARAMETER_BLACK_LEVEL_COMPENSATION_RED",
        "PARAMETER_BLACK_LEVEL_COMPENSATION_GREEN_BLUE",
        "PARAMETER_BLACK_LEVEL_COMPENSATION_GREEN_RED",
        "PARAMETER_WHITE_BALANCE",
        "PARAMETER_BACK_LIGHT_COMPENSATION",
        "PARAMETER_KEEP_ALIVE",
        "PARAMETER_DEPTH_CONFIDENCE_THRESHOLD",
        "PARAMETER_DEPTH_FAST_FILTER",
        "PARAMETER_TEMPERATURE",
        "PARAMETER_AVERAGE_LUMINANCE",
        "PARAMETER_INVALID",
    };
    ASSERT_EQ(sizeof(names) / sizeof(names[0]), 37u);
    for (int i = 0; i <= 36; ++i)
        EXPECT_EQ(getParameterName(static_cast<Parameter>(i)), names[i]) << i;
    EXPECT_EQ(PARAMETER_KEEP_ALIVE, 31);
    EXPECT_EQ(PARAMETER_INVALID, 36);
    EXPECT_EQ(INVALID_PARAMETER_VALUE, 233493508);
}

TEST(Vocabulary, OutOfRangeLookupsAreNeutral)
{
    EXPECT_EQ(getColorSpaceDepth(static_cast<ColorSpace>(99)), 0u);
    EXPECT_EQ(getColorSpaceName(static_cast<ColorSpace>(-1)), "");
    EXPECT_EQ(getParameterName(static_cast<Parameter>(37)), "");
}

TEST(Vocabulary, ResolutionSetOrdersSmallestFirstLargestLast)
{
    std::set<Resolution> sizes = { { 640, 480 }, { 160, 120 }, { 1280, 960 }, { 320, 240 } };
    EXPECT_EQ(*sizes.begin(), Resolution(160, 120));
    EXPECT_EQ(*sizes.rbegin(), Resolution(1280, 960));
    EXPECT_TRUE(Resolution(320, 240) != Resolution(320, 241));
    // Equal widths are told apart by height, so both stay in a set.
    sizes.insert({ 320, 200 });
    EXPECT_EQ(sizes.size(), 5u);
}

TEST(CameraPreferencesTest, ConstantsAndRefreshRateRule)
{
    const uint64_t ones = std::numeric_limits<uint64_t>::max();
    EXPECT_EQ(CameraPreferences::defaultResolution, Resolution(ones, ones));
    EXPECT_EQ(CameraPreferences::defaultColorSpace, COLORSPACE_UNKNOWN);

    CameraPreferences p(Resolution(2000, 3000), COLORSPACE_LAB_888, -4); // stored unchecked
    EXPECT_EQ(p.getResolution(), Resolution(2000, 3000));
    EXPECT_EQ(p.getRefreshRate(), -4);

    EXPECT_TRUE(p.setRefreshRate(7));
    EXPECT_FALSE(p.setRefreshRate(-1));
    EXPECT_EQ(p.getRefreshRate(), 7);
    EXPECT_TRUE(p.setRefreshRate(0));
    EXPECT_EQ(p.getRefreshRate(), 0);
    EXPECT_TRUE(p.setResolution(Resolution(1, 2)));
    EXPECT_TRUE(p.setColorSpace(COLORSPACE_Y_8));
    EXPECT_EQ(p.getColorSpace(), COLORSPACE_Y_8);
}

} // namespace

#include <framehub/camera_builder.h>

namespace {
TEST(CameraInfoTest, Defaults)
{
    Kelmo::FrameHub::CameraInfo info;
    EXPECT_TRUE(info.name.empty() && info.model.empty() && info.backendArgument.empty());
    EXPECT_EQ(info.fieldOfView.horizontal, 0.0f);
    EXPECT_FALSE(info.horizontalFlip || info.verticalFlip);
    EXPECT_TRUE(info.resolutions.empty() && info.colorSpaces.empty() && info.frameRates.empty());
}
} // namespace
