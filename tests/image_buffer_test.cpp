#include <framehub/image_buffer.h>

#include <gtest/gtest.h>

using namespace Kelmo::FrameHub;

namespace {

TEST(ImageBufferTest, NewBuffersAllocateLate)
{
    ImageBuffer owning("cam", Resolution(4, 3), COLORSPACE_RGB_888, true);
    EXPECT_EQ(owning.getTimeStamp(), -1);
    EXPECT_EQ(owning.getFieldOfView().horizontal + owning.getFieldOfView().vertical, 0.0f);
    EXPECT_EQ(owning.lockCount, 0u);
    EXPECT_EQ(owning.getSize(), 36u);
    unsigned char* block = owning.getData();
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(owning.getData(), block);

    ImageBuffer foreign("cam", Resolution(4, 3), COLORSPACE_RGB_888, false);
    EXPECT_EQ(foreign.getData(), nullptr);
    EXPECT_EQ(ImageBuffer("cam", Resolution(640, 480), COLORSPACE_UNKNOWN, true).getSize(), 0u);
}

TEST(ImageBufferTest, ResolutionRegrowRules)
{
    struct Row {
        Resolution next;
        bool keepsBlock;
    } rows[] = {
        { Resolution(320, 960), true }, // more width, not more pixels
        { Resolution(100, 100), true }, // shrink
        { Resolution(1000, 400), false }, // more pixels: grows to the field-wise maximum
    };
    ImageBuffer b("cam", Resolution(640, 480), COLORSPACE_Y_8, true);
    for (const Row& row : rows) {
        unsigned char* before = b.getData();
        b.setResolution(row.next);
        EXPECT_EQ(b.getResolution(), row.next);
        EXPECT_TRUE(!row.keepsBlock || b.getData() == before) << row.next.width;
    }
    // After the growth the block fits 1000x480: going there costs nothing.
    unsigned char* grown = b.getData();
    b.setResolution(Resolution(1000, 480));
    EXPECT_EQ(b.getData(), grown);
    b.setResolution(Resolution(1001, 480));
    EXPECT_EQ(b.getSize(), 1001u * 480u);
}

TEST(ImageBufferTest, WiderColorSpaceDropsBlockNarrowerKeepsIt)
{
    ImageBuffer b("cam", Resolution(8, 8), COLORSPACE_Y_8, true);
    b.getData();
    b.setColorSpace(COLORSPACE_RGB_888);
    unsigned char* wide = b.getData();
    // Writing the whole wider image must fit in the new block (ASan checks).
    std::fill(wide, wide + b.getSize(), 0x5a);
    b.setColorSpace(COLORSPACE_Y_8);
    EXPECT_EQ(b.getData(), wide);
    b.setColorSpace(COLORSPACE_U_8);
    EXPECT_EQ(b.getData(), wide);
}

TEST(ImageBufferTest, SetDataOwnershipAsymmetry)
{
    static unsigned char external[16];
    ImageBuffer owningWithBlock("cam", Resolution(4, 4), COLORSPACE_Y_8, true);
    owningWithBlock.getData();
    owningWithBlock.setData(external); // frees the block, never frees external
    EXPECT_EQ(owningWithBlock.getData(), external);
    owningWithBlock.setResolution(Resolution(100, 100));
    EXPECT_EQ(owningWithBlock.getData(), external);
    EXPECT_EQ(owningWithBlock.getResolution(), Resolution(100, 100));

    // Never allocated: keeps ownership and frees what was attached.
    ImageBuffer* fresh = new ImageBuffer("cam", Resolution(4, 4), COLORSPACE_Y_8, true);
    fresh->setData(new unsigned char[16]);
    delete fresh; // LeakSanitizer would report a leak here if not freed

    ImageBuffer foreign("cam", Resolution(4, 4), COLORSPACE_Y_8, false);
    foreign.setData(external);
    foreign.setColorSpace(COLORSPACE_XYZ_323232);
    EXPECT_EQ(foreign.getData(), external);
}

TEST(ImageBufferTest, PreferencesValidityIgnoresRate)
{
    ImageBuffer b("cam", Resolution(320, 240), COLORSPACE_Y_8, true);
    EXPECT_TRUE(b.isPreferencesValid(CameraPreferences(Resolution(320, 240), COLORSPACE_Y_8, 99)));
    EXPECT_FALSE(b.isPreferencesValid(CameraPreferences(Resolution(320, 241), COLORSPACE_Y_8, 5)));
    EXPECT_FALSE(b.isPreferencesValid(CameraPreferences(Resolution(320, 240), COLORSPACE_U_8, 5)));
}

TEST(ImageBufferTest, CvMatTypesAndSharing)
{
    struct Row {
        ColorSpace space;
        int type; // -1: empty matrix
    } rows[] = { { COLORSPACE_YUV_422, CV_8UC2 }, { COLORSPACE_YUV_888, CV_8UC3 }, { COLORSPACE_HSY_888, CV_8UC3 },
        { COLORSPACE_RGB_888, CV_8UC3 }, { COLORSPACE_BGR_888, CV_8UC3 }, { COLORSPACE_LAB_888, CV_8UC3 },
        { COLORSPACE_Y_8, CV_8UC1 }, { COLORSPACE_H_8, CV_8UC1 }, { COLORSPACE_B_8, CV_8UC1 },
        { COLORSPACE_ARGB_8888, CV_8UC4 }, { COLORSPACE_YYCBCR_8888, CV_8UC4 }, { COLORSPACE_INFRARED_16, CV_16UC1 },
        { COLORSPACE_DEPTH_16, CV_16UC1 }, { COLORSPACE_XYZ_323232, CV_32FC3 }, { COLORSPACE_DISTANCE_32, CV_32FC1 },
        { COLORSPACE_UNKNOWN, -1 } };
    for (const Row& row : rows) {
        SCOPED_TRACE(getColorSpaceName(row.space));
        ImageBuffer b("cam", Resolution(6, 4), row.space, true);
        cv::Mat m = ImageBuffer::imageBufferToCvMat(b);
        if (row.type < 0) {
            EXPECT_TRUE(m.empty());
            continue;
        }
        EXPECT_EQ(m.type(), row.type);
        EXPECT_EQ(m.size(), cv::Size(6, 4));
        EXPECT_TRUE(m.isContinuous());
        EXPECT_EQ(m.step[0], 6u * m.elemSize());
        EXPECT_EQ(m.data, b.getData()); // a header, no copy
    }
}

} // namespace
