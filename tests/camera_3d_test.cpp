#include "pipeline/camera_3d.h"

#include "log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

using namespace Kelmo::FrameHub;

namespace {

typedef boost::shared_ptr<ImageBuffer> Buffer;
const uint8_t kUntouched = 0xEE;
const float kPi = 3.14159265f;

class TestCamera3D : public Camera3D {
public:
    explicit TestCamera3D(Resolution largest = Resolution(8, 6), FieldOfView fov = FieldOfView(1.0f, 0.75f))
        : Camera3D("Test3D", "test")
    {
        setNativelySupportedResolutions({ Resolution(2, 1), largest });
        setNativelySupportedColorSpaces({ COLORSPACE_DEPTH_16 });
        setNativelySupportedFrameRates({ 30 });
        if (fov.horizontal > 0.0f)
            setFieldOfView(fov);
    }
    using Camera3D::_convertImage;
    using Camera3D::_lut;

protected:
    bool _setResolution(const Resolution&) override { return true; }
    bool _setColorSpace(const ColorSpace&) override { return true; }
    bool _setFrameRate(int) override { return true; }
    bool _getDirectRawImage(Buffer) override { return true; }
};

Buffer frame(uint64_t W, uint64_t H, std::function<uint16_t(uint64_t)> sampleAt, ColorSpace space = COLORSPACE_DEPTH_16)
{
    Buffer b(new ImageBuffer("test", Resolution(W, H), space, true));
    for (uint64_t i = 0; i < b->getSize() / 2; ++i)
        reinterpret_cast<uint16_t*>(b->getData())[i] = sampleAt(i);
    b->setTimeStamp(42);
    return b;
}

Buffer frame(uint64_t W, std::vector<uint16_t> samples)
{
    return frame(W, samples.size() / W, [samples](uint64_t i) { return samples[i]; });
}

// Through the dispatcher into a destination pre-filled with kUntouched;
// null when refused.
Buffer convert(TestCamera3D& camera, Buffer src, ColorSpace target, uint64_t w, uint64_t h)
{
    Buffer dst(new ImageBuffer("test", Resolution(w, h), target, true));
    std::fill(dst->getData(), dst->getData() + dst->getSize(), kUntouched);
    return camera._convertImage(CameraPreferences(Resolution(w, h), target, 30), src, dst) ? dst : Buffer();
}

template <typename T> std::vector<T> pixels(Buffer b, uint64_t count)
{
    if (!b)
        return {};
    const T* p = reinterpret_cast<const T*>(b->getData());
    return std::vector<T>(p, p + count);
}

TEST(Camera3DTest, EveryValidColorSpaceConvertsFromDepth)
{
    TestCamera3D camera;
    const std::vector<int> valid = { 4, 9, 12, 13, 14, 19, 20, 21 };
    for (int value = -1; value < 64; ++value) {
        const bool isValid = std::find(valid.begin(), valid.end(), value) != valid.end();
        EXPECT_EQ(camera.isColorSpaceValid(static_cast<ColorSpace>(value)), isValid) << value;
        EXPECT_TRUE(!isValid || convert(camera, frame(8, 6, [](uint64_t i) { return i; }), ColorSpace(value), 8, 6))
            << value;
    }
}

TEST(Camera3DTest, EightBitDepthAndFalseColourOfPinnedSamples)
{
    struct Case {
        uint16_t sample;
        uint8_t y, red, green, blue;
    };
    const Case cases[] = { { 0, 0, 0, 0, 0 }, { 399, 0, 85, 85, 85 }, { 416, 1, 85, 85, 85 }, { 491, 5, 85, 85, 85 },
        { 492, 5, 254, 0, 0 }, { 1000, 37, 161, 88, 5 }, { 2000, 100, 50, 160, 44 }, { 3000, 162, 7, 124, 123 },
        { 4000, 225, 0, 13, 241 }, { 4095, 230, 0, 0, 255 }, { 4096, 231, 0, 0, 255 }, { 4495, 255, 0, 0, 255 },
        { 4496, 0, 0, 0, 255 }, { 65535, 230, 0, 0, 255 } };
    // Three times over, so that whole blocks and a tail are both converted.
    const uint64_t cycle = sizeof(cases) / sizeof(cases[0]), n = 3 * cycle;
    const Buffer src = frame(n, 1, [&](uint64_t i) { return cases[i % cycle].sample; });
    TestCamera3D camera;
    const std::vector<uint8_t> rgb = pixels<uint8_t>(convert(camera, src, COLORSPACE_RGB_888, n, 1), 3 * n);
    std::vector<std::vector<uint8_t>> mono;
    for (ColorSpace target : { COLORSPACE_Y_8, COLORSPACE_R_8, COLORSPACE_G_8, COLORSPACE_B_8 })
        mono.push_back(pixels<uint8_t>(convert(camera, src, target, n, 1), n));
    for (uint64_t i = 0; i < n; ++i) {
        const Case& c = cases[i % cycle];
        EXPECT_EQ(mono[0][i], c.y) << c.sample;
        EXPECT_EQ(std::vector<uint8_t>(&rgb[3 * i], &rgb[3 * i] + 3), std::vector<uint8_t>({ c.red, c.green, c.blue }));
    }
    for (const auto& plane : mono)
        EXPECT_EQ(plane, mono[0]);
}

// Samples 400 + 16 i show their index i in 8-bit depth. With a zero field
// of view every table factor is 1, so a distance shows which sample it read.
TEST(Camera3DTest, StridingReadsEveryRthSampleOfEveryRthRow)
{
    const Buffer src = frame(40, 6, [](uint64_t i) { return 400 + 16 * i; });
    TestCamera3D camera(Resolution(40, 6), FieldOfView());
    const auto expect = [](uint64_t rowStep, uint16_t offset, uint16_t scale) {
        std::vector<uint16_t> out;
        for (uint64_t j = 0; j < 3; ++j)
            for (uint64_t k = 0; k < 19; ++k)
                out.push_back(offset + scale * (rowStep * j + 2 * k));
        return out;
    };
    // r = 2: pixel (k, j) reads sample 2 k of row 2 j.
    const std::vector<uint8_t> depth8 = pixels<uint8_t>(convert(camera, src, COLORSPACE_Y_8, 19, 3), 57);
    EXPECT_EQ(std::vector<uint16_t>(depth8.begin(), depth8.end()), expect(80, 0, 1));
    // The distance walk steps r w + (r - 1) W = 78 per row when W is not r w,
    // and fills the first half of the block only.
    const Buffer distance = convert(camera, src, COLORSPACE_DISTANCE_32, 19, 3);
    EXPECT_EQ(pixels<uint16_t>(distance, 57), expect(78, 400, 16));
    const std::vector<uint8_t> block = pixels<uint8_t>(distance, 4 * 57);
    EXPECT_EQ(std::vector<uint8_t>(block.begin() + 2 * 57, block.end()), std::vector<uint8_t>(2 * 57, kUntouched));
    EXPECT_EQ(pixels<uint16_t>(convert(camera, src, COLORSPACE_DISTANCE_32, 40, 6), 240), pixels<uint16_t>(src, 240));
}

TEST(Camera3DTest, PointCloudIsRightHandedWithDepthAhead)
{
    const Buffer src = frame(8, 6, [](uint64_t i) { return i == 47 ? 0 : 1000; });
    TestCamera3D camera(Resolution(8, 6), FieldOfView(1.0f, 0.75f));
    std::vector<float> xyz = pixels<float>(convert(camera, src, COLORSPACE_XYZ_323232, 8, 6), 3 * 48);
    const auto point = [&](int k, int j) { return std::vector<float>(&xyz[24 * j + 3 * k], &xyz[24 * j + 3 * k + 3]); };

    EXPECT_EQ(point(4, 3), std::vector<float>({ 1000.0f, 0.0f, 0.0f }));
    EXPECT_FLOAT_EQ(point(0, 0)[0], 1000.0f);
    EXPECT_FLOAT_EQ(point(0, 0)[1], 1000.0f * std::tan(0.5f)); // left
    EXPECT_FLOAT_EQ(point(0, 0)[2], 1000.0f * std::tan(0.375f)); // up
    EXPECT_EQ(point(7, 5), std::vector<float>({ 0.0f, 0.0f, 0.0f }));

    camera.setFieldOfView(FieldOfView(2.0f, 1.5f));
    xyz = pixels<float>(convert(camera, src, COLORSPACE_XYZ_323232, 8, 6), 3 * 48);
    EXPECT_FLOAT_EQ(point(0, 0)[1], 1000.0f * std::tan(1.0f));
}

// 120 by 90 degrees over a 4x2 table: the factors are 1 / (cos 45 cos 22.5)
// in the corners and 1 / (cos 15 cos 22.5) in the middle columns.
TEST(Camera3DTest, DistanceUsesTheTableBuiltOnceAtTheLargestSize)
{
    const Buffer src = frame(4, { 1000, 1000, 0, 50000, 1000, 1000, 1000, 1000 });
    TestCamera3D camera(Resolution(4, 2), FieldOfView(2.0f * kPi / 3.0f, kPi / 2.0f));
    EXPECT_FALSE(camera._lut);
    const std::vector<uint16_t> expected = { 1531, 1121, 0, 76537 - 65536, 1531, 1121, 1121, 1531 };
    EXPECT_EQ(pixels<uint16_t>(convert(camera, src, COLORSPACE_DISTANCE_32, 4, 2), 8), expected);
    ASSERT_TRUE(camera._lut);
    const float* table = camera._lut.get();
    camera.setFieldOfView(FieldOfView(1.0f, 1.0f));
    EXPECT_EQ(pixels<uint16_t>(convert(camera, src, COLORSPACE_DISTANCE_32, 4, 2), 8), expected);
    EXPECT_EQ(camera._lut.get(), table);

    // A quarter turn off axis the cosine is almost 0: the factor is held at
    // -32767 so that the truncation to 32 bits stays defined.
    TestCamera3D degenerate(Resolution(2, 1), FieldOfView(2.0f * kPi, 1.0f));
    EXPECT_EQ(pixels<uint16_t>(convert(degenerate, frame(2, { 1, 0 }), COLORSPACE_DISTANCE_32, 2, 1), 2),
        std::vector<uint16_t>({ 65536 - 32766, 0 }));
}

TEST(Camera3DTest, DepthAndInfraredResizeByNearestNeighbour)
{
    TestCamera3D camera;
    EXPECT_EQ(pixels<uint16_t>(convert(camera, frame(2, { 1, 2, 3, 4 }), COLORSPACE_DEPTH_16, 4, 4), 16),
        std::vector<uint16_t>({ 1, 1, 2, 2, 1, 1, 2, 2, 3, 3, 4, 4, 3, 3, 4, 4 }));
    const Buffer infrared = frame(
        4, 4, [](uint64_t i) { return i; }, COLORSPACE_INFRARED_16);
    EXPECT_EQ(pixels<uint16_t>(convert(camera, infrared, COLORSPACE_INFRARED_16, 2, 2), 4),
        std::vector<uint16_t>({ 0, 2, 8, 10 }));
}

// Every refusal over an 8x6 source, on a camera whose table would be 4x3.
TEST(Camera3DTest, RefusalsAreLoggedAfterTheStamp)
{
    enum Source { DEPTH, INFRARED, LUMA, NONE, SAME, NO_DESTINATION };
    const std::string input = "convertImage(): A camera 3D request a Depth or Infrared ColorSpace as input.";
    const std::string unsupported = "convert(): Conversion currently not supported.";
    const std::string width = "convertImage(): Invalid destination width ";
    const std::string size = "convertImage(): Invalid destination size ";
    const struct {
        Source source;
        ColorSpace target;
        uint64_t w, h;
        std::string message;
    } cases[] = {
        { NONE, COLORSPACE_Y_8, 8, 6, "_convertImage(): The imageBuffer doesn't exist or is corrupted" },
        { NO_DESTINATION, COLORSPACE_Y_8, 8, 6, "_convertImage(): The convertedBuffer doesn't exist or is corrupted" },
        { LUMA, COLORSPACE_Y_8, 8, 6, input },
        { SAME, COLORSPACE_DEPTH_16, 4, 3, "convertImage(): Source and destination buffer must not be the same." },
        { SAME, COLORSPACE_Y_8, 4, 3, input }, // restamped to Y_8 first, no longer a depth source
        { DEPTH, COLORSPACE_INFRARED_16, 8, 6, unsupported },
        { DEPTH, COLORSPACE_BGR_888, 8, 6, unsupported },
        { INFRARED, COLORSPACE_DEPTH_16, 8, 6, unsupported },
        { DEPTH, COLORSPACE_Y_8, 0, 6, width + "0 for a source of width 8." },
        { INFRARED, COLORSPACE_INFRARED_16, 0, 6, width + "0 for a source of width 8." },
        { DEPTH, COLORSPACE_RGB_888, 9, 6, width + "9 for a source of width 8." },
        { DEPTH, COLORSPACE_Y_8, 8, 7, size + "8x7 for a source of size 8x6 in COLORSPACE_Y_8." },
        { DEPTH, COLORSPACE_XYZ_323232, 4, 4, size + "4x4 for a source of size 8x6 in COLORSPACE_XYZ_323232." },
        { DEPTH, COLORSPACE_DISTANCE_32, 3, 5, size + "3x5 for a source of size 8x6 in COLORSPACE_DISTANCE_32." },
        { DEPTH, COLORSPACE_DEPTH_16, 8, 0, size + "8x0 for a source of size 8x6 in COLORSPACE_DEPTH_16." },
        // The walk reads as far into the table as into the source.
        { DEPTH, COLORSPACE_DISTANCE_32, 4, 3,
            size + "4x3 for a source of size 8x6 and a distance table of size 4x3." },
    };
    for (const auto& c : cases) {
        TestCamera3D camera(Resolution(4, 3));
        const ColorSpace space = c.source == INFRARED ? COLORSPACE_INFRARED_16
            : c.source == LUMA                        ? COLORSPACE_Y_8
                                                      : COLORSPACE_DEPTH_16;
        Buffer src = c.source == NONE ? Buffer()
                                      : frame(
                                          8, 6, [](uint64_t) { return 1000; }, space);
        Buffer dst = c.source == SAME ? src : Buffer(new ImageBuffer("test", Resolution(8, 6), COLORSPACE_Y_8, true));
        if (c.source == NO_DESTINATION)
            dst.reset();
        LogCapture log;
        EXPECT_FALSE(camera._convertImage(CameraPreferences(Resolution(c.w, c.h), c.target, 30), src, dst))
            << c.message;
        EXPECT_TRUE(log.has(2, c.message)) << c.message;
        EXPECT_EQ(log.records().size(), 1u) << c.message;
        if (src && dst) {
            EXPECT_EQ(dst->getResolution(), Resolution(c.w, c.h)) << c.message;
            EXPECT_EQ(dst->getColorSpace(), c.target) << c.message;
            EXPECT_EQ(dst->getTimeStamp(), 42) << c.message;
        }
        EXPECT_FALSE(camera._lut) << c.message;
    }
}

} // namespace
