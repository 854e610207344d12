#include <framehub/camera_builder.h>
#include <framehub/camera_preferences.h>
#include <framehub/frame_hub_type.h>

#include "types/locks.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <set>
#include <thread>

using namespace Kelmo::FrameHub;

namespace {

// In the order of their numbers.
const struct {
    ColorSpace value;
    const char* name;
    uint64_t depth;
    uint64_t channels;
} kColorSpaces[] = { { COLORSPACE_YUV_422, "YUV_422", 2, 3 }, { COLORSPACE_YUV_888, "YUV_888", 3, 3 },
    { COLORSPACE_HSY_888, "HSY_888", 3, 3 }, { COLORSPACE_HSMIXED_888, "HSMIXED_888", 3, 3 },
    { COLORSPACE_Y_8, "Y_8", 1, 1 }, { COLORSPACE_U_8, "U_8", 1, 1 }, { COLORSPACE_V_8, "V_8", 1, 1 },
    { COLORSPACE_H_8, "H_8", 1, 1 }, { COLORSPACE_S_8, "S_8", 1, 1 }, { COLORSPACE_RGB_888, "RGB_888", 3, 3 },
    { COLORSPACE_ARGB_8888, "ARGB_8888", 4, 4 }, { COLORSPACE_BGR_888, "BGR_888", 3, 3 },
    { COLORSPACE_R_8, "R_8", 1, 1 }, { COLORSPACE_G_8, "G_8", 1, 1 }, { COLORSPACE_B_8, "B_8", 1, 1 },
    { COLORSPACE_YYCBCR_8888, "YYCBCR_8888", 4, 4 }, { COLORSPACE_H2RGB_888, "H2RGB_888", 3, 3 },
    { COLORSPACE_LAB_888, "LAB_888", 3, 3 }, { COLORSPACE_INFRARED_16, "INFRARED_16", 2, 1 },
    { COLORSPACE_DEPTH_16, "DEPTH_16", 2, 1 }, { COLORSPACE_XYZ_323232, "XYZ_323232", 12, 3 },
    { COLORSPACE_DISTANCE_32, "DISTANCE_32", 4, 1 }, { COLORSPACE_UNKNOWN, "UNKNOWN", 0, 0 } };

TEST(Vocabulary, ColorSpaceTable)
{
    ASSERT_EQ(sizeof(kColorSpaces) / sizeof(kColorSpaces[0]), 23u);
    for (int number = 0; number <= 22; ++number) {
        const auto& row = kColorSpaces[number];
        SCOPED_TRACE(row.name);
        EXPECT_EQ(static_cast<int>(row.value), number);
        EXPECT_EQ(getColorSpaceName(row.value), std::string("COLORSPACE_") + row.name);
        EXPECT_EQ(getColorSpaceDepth(row.value), row.depth);
        EXPECT_EQ(getColorSpaceChannel(row.value), row.channels);
    }
    // Out of range: neutral values.
    EXPECT_EQ(getColorSpaceDepth(static_cast<ColorSpace>(99)), 0u);
    EXPECT_EQ(getColorSpaceName(static_cast<ColorSpace>(-1)), "");
}

TEST(Vocabulary, ParameterNamesAreTheIdentifiers)
{
    const char* names[] = { "BRIGHTNESS", "CONTRAST", "SATURATION", "HUE", "RED_CHROMA", "BLUE_CHROMA", "GAIN",
        "HORIZONTAL_FLIP", "VERTICAL_FLIP", "LENS_X", "LENS_Y", "AUTO_FOCUS", "AUTO_EXPOSITION", "AUTO_WHITE_BALANCE",
        "AUTO_GAIN", "BUFFER_SIZE", "EXPOSURE", "SET_DEFAULT_PARAMS", "EXPOSURE_CORRECTION", "EXPOSURE_ALGORITHM",
        "SHARPNESS", "AUTO_WHITE_BALANCE_GREEN_GAIN", "AUTO_BLACK_LEVEL_COMPENSATION",
        "AUTO_BLACK_LEVEL_COMPENSATION_STABLE_RANGE", "AUTO_BLACK_LEVEL_TARGET", "BLACK_LEVEL_COMPENSATION_BLUE",
        "BLACK_LEVEL_COMPENSATION_RED", "BLACK_LEVEL_COMPENSATION_GREEN_BLUE", "BLACK_LEVEL_COMPENSATION_GREEN_RED",
        "WHITE_BALANCE", "BACK_LIGHT_COMPENSATION", "KEEP_ALIVE", "DEPTH_CONFIDENCE_THRESHOLD", "DEPTH_FAST_FILTER",
        "TEMPERATURE", "AVERAGE_LUMINANCE", "INVALID" };
    ASSERT_EQ(sizeof(names) / sizeof(names[0]), 37u);
    for (int i = 0; i <= 36; ++i)
        EXPECT_EQ(getParameterName(static_cast<Parameter>(i)), std::string("PARAMETER_") + names[i]) << i;
    EXPECT_EQ(getParameterName(static_cast<Parameter>(37)), "");
    EXPECT_EQ(PARAMETER_KEEP_ALIVE, 31);
    EXPECT_EQ(PARAMETER_INVALID, 36);
    EXPECT_EQ(INVALID_PARAMETER_VALUE, 233493508);
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

TEST(Vocabulary, PreferencesAndCameraInfoDefaults)
{
    const uint64_t ones = std::numeric_limits<uint64_t>::max();
    EXPECT_EQ(CameraPreferences::defaultResolution, Resolution(ones, ones));
    EXPECT_EQ(CameraPreferences::defaultColorSpace, COLORSPACE_UNKNOWN);

    CameraPreferences p(Resolution(2000, 3000), COLORSPACE_LAB_888, -4); // stored unchecked
    EXPECT_EQ(p.getRefreshRate(), -4);
    EXPECT_TRUE(p.setRefreshRate(7));
    EXPECT_FALSE(p.setRefreshRate(-1));
    EXPECT_EQ(p.getRefreshRate(), 7);
    EXPECT_TRUE(p.setRefreshRate(0));
    EXPECT_EQ(p.getRefreshRate(), 0);

    CameraInfo info;
    EXPECT_TRUE(info.name.empty() && info.model.empty() && info.backendArgument.empty());
    EXPECT_EQ(info.fieldOfView.horizontal, 0.0f);
    EXPECT_FALSE(info.horizontalFlip || info.verticalFlip);
    EXPECT_TRUE(info.resolutions.empty() && info.colorSpaces.empty() && info.frameRates.empty());
}

// The hub's locks try before they block; a writer that waits must still
// keep new readers out, or a stream of readers would starve it.
TEST(Locks, WaitingWriterKeepsNewReadersOut)
{
    boost::shared_mutex mutex;
    std::unique_ptr<SharedLock> first(new SharedLock(mutex));
    std::atomic<bool> wrote { false };
    std::atomic<bool> read { false };
    std::thread writer([&] {
        ExclusiveLock lock(mutex);
        wrote = true;
    });
    // The writer is waiting once a reader can no longer get in.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    bool waiting = false;
    while (!waiting && std::chrono::steady_clock::now() < deadline) {
        waiting = !mutex.try_lock_shared();
        if (!waiting)
            mutex.unlock_shared();
        std::this_thread::yield();
    }
    std::thread reader([&] {
        SharedLock lock(mutex);
        read = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const bool readPastWriter = read;
    first.reset();
    writer.join();
    reader.join();
    EXPECT_TRUE(waiting);
    EXPECT_FALSE(readPastWriter);
    EXPECT_TRUE(wrote && read);
}

} // namespace
