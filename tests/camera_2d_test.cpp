#include "pipeline/camera_2d.h"
#include "pipeline/camera_2d_simd.h"

#include "log_capture.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <vector>

using namespace Kelmo::FrameHub;

namespace {

typedef boost::shared_ptr<ImageBuffer> Buffer;
typedef std::vector<uint8_t> Bytes;
const uint8_t kUntouched = 0xEE;

class TestCamera2D : public Camera2D {
public:
    TestCamera2D()
        : Camera2D("Test2D", "test")
    {
    }
    using Camera2D::_convertImage;

protected:
    bool _setResolution(const Resolution&) override { return true; }
    bool _setColorSpace(const ColorSpace&) override { return true; }
    bool _setFrameRate(int) override { return true; }
    bool _getDirectRawImage(Buffer) override { return true; }
};

Buffer source(uint64_t W, uint64_t H, const std::function<uint8_t(size_t)>& byteAt)
{
    Buffer b(new ImageBuffer("test", Resolution(W, H), COLORSPACE_YUV_422, true));
    uint8_t* data = b->getData();
    for (size_t i = 0; i < 2 * W * H; ++i)
        data[i] = byteAt(i);
    b->setTimeStamp(42);
    return b;
}

uint8_t indexed(size_t i) { return static_cast<uint8_t>(i); }
// U and V 128 (no hue, no saturation), luma from the byte index.
uint8_t greyIndexed(size_t i) { return i % 2 ? 128 : static_cast<uint8_t>(i); }

// Macro-pixels repeated along the rows.
std::function<uint8_t(size_t)> macroPixels(Bytes bytes)
{
    return [bytes](size_t i) { return bytes[i % bytes.size()]; };
}

// Converts through the dispatcher into a destination pre-filled with
// kUntouched; returns the destination image, or nothing when refused.
Bytes convert(Buffer src, ColorSpace target, uint64_t w, uint64_t h)
{
    Buffer dst(new ImageBuffer("test", Resolution(w, h), target, true));
    std::fill(dst->getData(), dst->getData() + dst->getSize(), kUntouched);
    TestCamera2D camera;
    const bool ok = camera._convertImage(CameraPreferences(Resolution(w, h), target, 30), src, dst);
    return ok ? Bytes(dst->getData(), dst->getData() + dst->getSize()) : Bytes();
}

TEST(Camera2DTest, ValidColorSpacesAreZeroToSeventeenButArgb)
{
    TestCamera2D camera;
    for (int value = 0; value < 300; ++value)
        EXPECT_EQ(camera.isColorSpaceValid(static_cast<ColorSpace>(value)), value <= 17 && value != 10) << value;
    EXPECT_FALSE(camera.isColorSpaceValid(static_cast<ColorSpace>(-1)));
}

// Byte moving targets over a source whose bytes are their own offsets, so
// that each output byte names the source position it came from. A crop makes
// the library conversion allocate its own result: nothing lands.
TEST(Camera2DTest, ByteMovingTargetsReadTheStatedOffsets)
{
    const uint8_t E = kUntouched;
    struct Case {
        const char* regime;
        ColorSpace target;
        uint64_t W, H, w, h;
        Bytes expected;
    } cases[] = {
        { "same width", COLORSPACE_Y_8, 4, 2, 4, 2, { 0, 2, 4, 6, 8, 10, 12, 14 } },
        { "crop", COLORSPACE_Y_8, 8, 2, 6, 2, { 0, 2, 4, 6, 8, 10, 16, 18, 20, 22, 24, 26 } },
        { "ratio 2", COLORSPACE_Y_8, 8, 4, 4, 2, { 0, 4, 8, 12, 32, 36, 40, 44 } },
        { "ratio 3", COLORSPACE_Y_8, 6, 6, 2, 2, { 0, 6, 36, 42 } },
        { "ratio 4", COLORSPACE_Y_8, 8, 8, 2, 2, { 0, 8, 64, 72 } },
        { "not whole", COLORSPACE_Y_8, 8, 4, 3, 2, { 0, 4, 8, 28, 32, 36 } },
        { "same width", COLORSPACE_U_8, 4, 2, 4, 2, { 1, 1, 5, 5, 9, 9, 13, 13 } },
        { "same width", COLORSPACE_V_8, 4, 2, 4, 2, { 3, 3, 7, 7, 11, 11, 15, 15 } },
        { "crop slants", COLORSPACE_U_8, 8, 2, 6, 2, { 1, 1, 5, 5, 9, 9, 13, 13, 17, 17, 21, 21 } },
        { "ratio 2", COLORSPACE_U_8, 8, 4, 4, 2, { 1, 3, 9, 11, 33, 35, 41, 43 } },
        { "ratio 2", COLORSPACE_V_8, 8, 4, 4, 2, { 3, 5, 11, 13, 35, 37, 43, 45 } },
        { "ratio 3", COLORSPACE_U_8, 12, 6, 4, 2, { 1, 5, 13, 17, 73, 77, 85, 89 } },
        { "ratio 3", COLORSPACE_V_8, 12, 6, 4, 2, { 3, 7, 15, 19, 75, 79, 87, 91 } },
        { "word copy leaves the tail", COLORSPACE_YUV_422, 2, 3, 2, 3, { 0, 1, 2, 3, 4, 5, 6, 7, E, E, E, E } },
        { "crop", COLORSPACE_YUV_422, 8, 2, 6, 2,
            { 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27 } },
        { "ratio 2", COLORSPACE_YUV_422, 8, 4, 4, 2, { 1, 3, 5, 5, 9, 11, 13, 13, 33, 35, 37, 37, 41, 43, 45, 45 } },
        { "ratio 3", COLORSPACE_YUV_422, 12, 6, 4, 2, { 1, 4, 7, 6, 13, 16, 19, 18, 73, 76, 79, 78, 85, 88, 91, 90 } },
        { "ratio 4", COLORSPACE_YUV_422, 8, 4, 2, 1, { 1, 5, 9, 7 } },
        { "same width, half filled", COLORSPACE_YYCBCR_8888, 4, 2, 4, 2,
            { 0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E } },
        { "odd width drops the row end", COLORSPACE_YYCBCR_8888, 7, 2, 7, 1,
            { 0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E } },
        { "not whole", COLORSPACE_YYCBCR_8888, 8, 4, 3, 2,
            { 0, 2, 1, 3, 32, 34, 33, 35, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E, E } },
        { "same width", COLORSPACE_YUV_888, 2, 2, 2, 2, { 0, 1, 3, 2, 1, 3, 4, 5, 7, 6, 5, 7 } },
        { "crop", COLORSPACE_YUV_888, 8, 2, 6, 2,
            { 0, 1, 3, 2, 1, 3, 4, 5, 7, 6, 5, 7, 8, 9, 11, 10, 9, 11, 16, 17, 19, 18, 17, 19, 20, 21, 23, 22, 21, 23,
                24, 25, 27, 26, 25, 27 } },
        { "ratio 2", COLORSPACE_YUV_888, 8, 4, 4, 2,
            { 0, 1, 3, 2, 1, 3, 8, 9, 11, 10, 9, 11, 32, 33, 35, 34, 33, 35, 40, 41, 43, 42, 41, 43 } },
        { "ratio 3", COLORSPACE_YUV_888, 12, 3, 4, 1, { 0, 1, 3, 2, 1, 3, 12, 13, 15, 14, 13, 15 } },
        { "library crop", COLORSPACE_RGB_888, 6, 2, 4, 2, Bytes(24, E) },
        { "library crop", COLORSPACE_RGB_888, 6, 2, 6, 1, Bytes(18, E) },
        { "library crop", COLORSPACE_BGR_888, 6, 2, 4, 2, Bytes(24, E) },
        { "library crop", COLORSPACE_BGR_888, 6, 2, 6, 1, Bytes(18, E) },
    };
    for (const Case& c : cases)
        EXPECT_EQ(convert(source(c.W, c.H, indexed), c.target, c.w, c.h), c.expected)
            << getColorSpaceName(c.target) << " " << c.regime;
}

// The hue routines share one traversal; HSY shows it through its luma bytes.
TEST(Camera2DTest, HueTraversalSkipsMacroPixelsAndSlants)
{
    struct Case {
        const char* regime;
        uint64_t W, H, w, h;
        Bytes lumas;
    } cases[] = {
        { "ratio 2", 8, 4, 4, 2, { 0, 2, 8, 10, 32, 34, 40, 42 } },
        { "ratio 3", 12, 6, 4, 2, { 0, 2, 12, 14, 72, 74, 84, 86 } },
        { "not whole: row step 2 w r r", 10, 4, 4, 2, { 0, 2, 8, 10, 32, 34, 40, 42 } },
        { "crop slants", 8, 2, 6, 2, { 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22 } },
    };
    for (const Case& c : cases) {
        Bytes expected;
        for (uint8_t y : c.lumas)
            expected.insert(expected.end(), { 0, 0, y });
        EXPECT_EQ(convert(source(c.W, c.H, greyIndexed), COLORSPACE_HSY_888, c.w, c.h), expected) << c.regime;
    }
}

TEST(Camera2DTest, YuvDownscaleAveragesDroppingTheLowBit)
{
    EXPECT_EQ(convert(source(4, 1, macroPixels({ 10, 21, 30, 40, 51, 60, 70, 81 })), COLORSPACE_YUV_422, 2, 1),
        Bytes({ 20, 40, 60, 60 }));
}

TEST(Camera2DTest, IntegerRgbPaths)
{
    // Six macro-pixels in a row: an odd luma sum, red, white, black, and two
    // sums below 32.
    const Bytes row = { 100, 128, 101, 128, 81, 90, 81, 240, 235, 128, 235, 128, 16, 128, 16, 128, 10, 128, 10, 128, 15,
        128, 16, 128 };
    struct Case {
        ColorSpace target;
        uint64_t w;
        Bytes expected;
    } cases[] = {
        // Ratio 2: one pixel a macro-pixel; only RGB truncates the luma sum.
        { COLORSPACE_BGR_888, 6, { 98, 98, 98, 0, 0, 254, 254, 254, 254, 0, 0, 0, 0, 0, 0, 0, 0, 0 } },
        { COLORSPACE_RGB_888, 6, { 97, 97, 97, 254, 0, 0, 254, 254, 254, 0, 0, 0, 0, 0, 0, 0, 0, 0 } },
        { COLORSPACE_R_8, 6, { 98, 254, 254, 0, 0, 0 } },
        { COLORSPACE_G_8, 6, { 98, 0, 254, 0, 0, 0 } },
        { COLORSPACE_B_8, 6, { 98, 0, 254, 0, 0, 0 } },
        // Full scale: each pixel its own luma; a narrower plane is a crop.
        { COLORSPACE_R_8, 12, { 97, 98, 254, 254, 254, 254, 0, 0, 0, 0, 0, 0 } },
        { COLORSPACE_B_8, 12, { 97, 98, 0, 0, 254, 254, 0, 0, 0, 0, 0, 0 } },
        { COLORSPACE_G_8, 8, { 97, 98, 0, 0, 254, 254, 0, 0 } },
    };
    for (const Case& c : cases)
        EXPECT_EQ(convert(source(12, 1, macroPixels(row)), c.target, c.w, 1), c.expected)
            << getColorSpaceName(c.target) << " " << c.w;

    // An odd ratio reads from the middle of every second macro-pixel, taking
    // V for U and U for V.
    EXPECT_EQ(convert(source(6, 1, macroPixels({ 128, 128, 128, 200 })), COLORSPACE_BGR_888, 2, 1),
        Bytes({ 130, 71, 245, 255, 102, 130 }));
    // A ratio of 0, which the dispatcher refuses, writes nothing.
    const Buffer wide(new ImageBuffer("test", Resolution(8, 1), COLORSPACE_BGR_888, true));
    std::fill(wide->getData(), wide->getData() + wide->getSize(), kUntouched);
    EXPECT_TRUE(Camera2D::convertYUV422toBGR888(source(6, 1, indexed), wide));
    EXPECT_EQ(Bytes(wide->getData(), wide->getData() + wide->getSize()), Bytes(24, kUntouched));
    // Rows 0, r, 2r...: luma 16 + 32 m gives 37.25 m.
    const auto coded = [](size_t i) { return i % 2 ? 128 : static_cast<uint8_t>(16 + 32 * (i / 4 % 7)); };
    EXPECT_EQ(convert(source(8, 4, coded), COLORSPACE_R_8, 4, 2), Bytes({ 0, 37, 74, 111, 37, 74, 111, 149 }));
}

TEST(Camera2DTest, HueAndSaturationExamples)
{
    struct Case {
        Bytes macroPixel; // Y0 U Y1 V
        uint8_t h, s0, s1;
        Bytes wheel;
    } cases[] = {
        { { 50, 128, 60, 128 }, 0, 0, 0, { 0, 0, 255 } }, // grey: no division, red on the wheel
        { { 81, 90, 81, 240 }, 10, 255, 255, { 0, 60, 255 } }, // case 1
        { { 106, 202, 106, 222 }, 213, 247, 247, { 243, 0, 255 } }, // case 2 and its -1
        { { 41, 240, 41, 110 }, 178, 255, 255, { 255, 0, 54 } }, // case 3
        { { 170, 166, 170, 16 }, 140, 254, 254, { 255, 177, 0 } }, // case 4
        { { 5, 60, 200, 60 }, 80, 255, 188, { 0, 255, 33 } }, // case 5: one hue, two saturations
        { { 145, 54, 145, 34 }, 85, 255, 255, { 0, 255, 0 } }, // case 6
    };
    for (const Case& c : cases) {
        const Buffer src = source(2, 1, macroPixels(c.macroPixel));
        const uint8_t y0 = c.macroPixel[0], y1 = c.macroPixel[2];
        Bytes wheel2 = c.wheel;
        wheel2.insert(wheel2.end(), c.wheel.begin(), c.wheel.end());
        EXPECT_EQ(convert(src, COLORSPACE_H_8, 2, 1), Bytes({ c.h, c.h })) << int(c.h);
        EXPECT_EQ(convert(src, COLORSPACE_S_8, 2, 1), Bytes({ c.s0, c.s1 })) << int(c.h);
        EXPECT_EQ(convert(src, COLORSPACE_HSY_888, 2, 1), Bytes({ c.h, c.s0, y0, c.h, c.s1, y1 })) << int(c.h);
        EXPECT_EQ(convert(src, COLORSPACE_HSMIXED_888, 2, 1), Bytes({ c.h, c.s0, c.h, c.h, c.s1, c.h })) << int(c.h);
        EXPECT_EQ(convert(src, COLORSPACE_H2RGB_888, 2, 1), wheel2) << int(c.h);
    }
}

// Every chroma pair once: the wheel at the borders of its sectors.
TEST(Camera2DTest, HueWheelBordersOverAllChroma)
{
    const Buffer src = source(512, 256, [](size_t i) {
        const size_t pair = i / 4;
        return static_cast<uint8_t>(i % 2 == 0 ? 128 : i % 4 == 1 ? pair % 256 : pair / 256);
    });
    const Bytes hue = convert(src, COLORSPACE_H_8, 512, 256);
    const Bytes wheel = convert(src, COLORSPACE_H2RGB_888, 512, 256);
    std::map<int, Bytes> seen;
    for (size_t p = 0; p < hue.size(); ++p)
        seen[hue[p]] = Bytes(wheel.begin() + 3 * p, wheel.begin() + 3 * p + 3);
    const std::map<int, Bytes> borders = { { 0, { 0, 0, 255 } }, { 42, { 0, 252, 255 } }, { 43, { 0, 255, 255 } },
        { 84, { 0, 255, 9 } }, { 85, { 0, 255, 0 } }, { 126, { 246, 255, 0 } }, { 127, { 255, 255, 0 } },
        { 168, { 255, 9, 0 } }, { 169, { 255, 0, 0 } }, { 210, { 255, 0, 246 } }, { 211, { 255, 0, 255 } },
        { 253, { 3, 0, 255 } }, { 254, { 0, 0, 255 } }, { 255, { 0, 0, 255 } } };
    for (const auto& border : borders) {
        ASSERT_TRUE(seen.count(border.first)) << border.first;
        EXPECT_EQ(seen[border.first], border.second) << border.first;
    }
}

const ColorSpace kTargets[] = { COLORSPACE_YUV_422, COLORSPACE_YUV_888, COLORSPACE_HSY_888, COLORSPACE_HSMIXED_888,
    COLORSPACE_Y_8, COLORSPACE_U_8, COLORSPACE_V_8, COLORSPACE_H_8, COLORSPACE_S_8, COLORSPACE_RGB_888,
    COLORSPACE_BGR_888, COLORSPACE_R_8, COLORSPACE_G_8, COLORSPACE_B_8, COLORSPACE_YYCBCR_8888, COLORSPACE_H2RGB_888 };

// Runs a conversion on the fastest vector paths, on AVX2 alone (the same
// bytes again where the CPU has nothing faster) and on the scalar ones.
struct BothPaths {
    Bytes vector, avx2, scalar;
};

BothPaths convertBothWays(Buffer src, ColorSpace target, uint64_t w, uint64_t h)
{
    BothPaths out;
    const bool previous = simd::setEnabled(true);
    out.vector = convert(src, target, w, h);
    const bool previousWide = simd::setAvx512Enabled(false);
    out.avx2 = simd::avx512Supported() ? convert(src, target, w, h) : out.vector;
    simd::setAvx512Enabled(previousWide);
    simd::setEnabled(false);
    out.scalar = convert(src, target, w, h);
    simd::setEnabled(previous);
    return out;
}

// Random images whose rows end in every kind of tail, at every ratio the
// kernels treat apart: each target byte for byte on both paths.
TEST(Camera2DTest, VectorPathsMatchScalarPaths)
{
    if (!(simd::setEnabled(true), simd::enabled()))
        GTEST_SKIP() << "no vector paths on this CPU";
    std::mt19937 random(11);
    const auto noise = [&random](size_t) { return static_cast<uint8_t>(random()); };
    const struct {
        uint64_t W, H, w, h;
    } sizes[] = { { 150, 37, 150, 37 }, { 262, 21, 200, 19 }, { 264, 21, 132, 10 }, { 262, 21, 130, 10 },
        { 266, 21, 133, 10 }, { 150, 37, 50, 12 }, { 264, 21, 66, 5 }, { 262, 21, 64, 5 }, { 1000, 9, 500, 4 },
        { 1002, 9, 501, 4 }, { 118, 13, 34, 3 }, { 32, 3, 16, 1 }, { 34, 5, 17, 2 }, { 80, 5, 40, 2 } };
    LogCapture quiet(1);
    for (const auto& size : sizes) {
        const Buffer src = source(size.W, size.H, noise);
        for (ColorSpace target : kTargets) {
            const BothPaths out = convertBothWays(src, target, size.w, size.h);
            EXPECT_TRUE(out.vector == out.scalar && out.avx2 == out.scalar)
                << getColorSpaceName(target) << " " << size.W << "x" << size.H << " to " << size.w << "x" << size.h;
        }
    }
}

// Every luma with every chroma pair: the saturation's estimate and
// correction, the hue's division, and HSY and the wheel built on them,
// against the scalar divisions.
TEST(Camera2DTest, VectorHueAndSaturationAreExactForAllInputs)
{
    if (!(simd::setEnabled(true), simd::enabled()))
        GTEST_SKIP() << "no vector paths on this CPU";
    const Buffer src = source(512, 32768, [](size_t i) {
        const size_t q = i / 4;
        const uint8_t luma = static_cast<uint8_t>(q >> 16 << 1);
        const uint8_t bytes[4]
            = { luma, static_cast<uint8_t>(q), static_cast<uint8_t>(luma + 1), static_cast<uint8_t>(q >> 8) };
        return bytes[i % 4];
    });
    for (ColorSpace target : { COLORSPACE_S_8, COLORSPACE_H_8, COLORSPACE_HSY_888, COLORSPACE_H2RGB_888 }) {
        const BothPaths out = convertBothWays(src, target, 512, 32768);
        ASSERT_EQ(out.vector.size(), 512u * 32768u * getColorSpaceDepth(target));
        EXPECT_TRUE(out.vector == out.scalar && out.avx2 == out.scalar) << getColorSpaceName(target);
    }
}

// Half size: every chroma pair with the luma sums where the rounding turns
// (below 32 the halving rounds up), odd and even, and the extremes; one
// destination pixel a macro-pixel, on every path.
TEST(Camera2DTest, HalfSizeColorIsExactForEveryChroma)
{
    if (!(simd::setEnabled(true), simd::enabled()))
        GTEST_SKIP() << "no vector paths on this CPU";
    const int sums[16] = { 0, 1, 29, 30, 31, 32, 33, 34, 100, 101, 254, 255, 256, 479, 509, 510 };
    const uint64_t w = 512, h = 2048;
    const Buffer src = source(2 * w, 2 * h, [&sums](size_t i) {
        const size_t row = i / (4 * w), q = row / 2 * w + i % (4 * w) / 4;
        const int sum = sums[q >> 16 & 15];
        const uint8_t bytes[4] = { static_cast<uint8_t>(sum / 2), static_cast<uint8_t>(q),
            static_cast<uint8_t>(sum - sum / 2), static_cast<uint8_t>(q >> 8) };
        return bytes[i % 4];
    });
    for (ColorSpace target :
        { COLORSPACE_RGB_888, COLORSPACE_BGR_888, COLORSPACE_R_8, COLORSPACE_G_8, COLORSPACE_B_8 }) {
        const BothPaths out = convertBothWays(src, target, w, h);
        ASSERT_FALSE(out.scalar.empty());
        EXPECT_TRUE(out.vector == out.scalar && out.avx2 == out.scalar) << getColorSpaceName(target);
    }
}

// Full-size RGB and BGR are the library conversion's bytes on every path:
// every (Y, U, V) once (Y0 and Y1 run through the lumas two by two for each
// chroma pair), then random frames whose runs end in every kind of tail.
TEST(Camera2DTest, FullScaleColorIsTheLibraryConversionForAllInputs)
{
    const Buffer all(new ImageBuffer("test", Resolution(4096, 4096), COLORSPACE_YUV_422, true));
    uint8_t* p = all->getData();
    for (uint32_t chroma = 0; chroma < 65536; ++chroma)
        for (uint32_t luma = 0; luma < 256; luma += 2, p += 4) {
            p[0] = static_cast<uint8_t>(luma);
            p[1] = static_cast<uint8_t>(chroma);
            p[2] = static_cast<uint8_t>(luma + 1);
            p[3] = static_cast<uint8_t>(chroma >> 8);
        }
    std::mt19937 random(5);
    std::vector<Buffer> frames = { all };
    for (const Resolution& size : { Resolution(2, 1), Resolution(18, 3), Resolution(30, 7), Resolution(34, 5),
             Resolution(642, 9), Resolution(640, 480) })
        frames.push_back(source(size.width, size.height, [&random](size_t) { return static_cast<uint8_t>(random()); }));
    const struct {
        ColorSpace target;
        int code;
    } cases[] = { { COLORSPACE_RGB_888, cv::COLOR_YUV2RGB_YUY2 }, { COLORSPACE_BGR_888, cv::COLOR_YUV2BGR_YUY2 } };
    for (const Buffer& frame : frames) {
        const Resolution size = frame->getResolution();
        const int w = static_cast<int>(size.width), h = static_cast<int>(size.height);
        for (const auto& c : cases) {
            cv::Mat expected;
            cv::cvtColor(cv::Mat(h, w, CV_8UC2, frame->getData()), expected, c.code);
            const Bytes library(expected.data, expected.data + expected.total() * 3);
            const BothPaths out = convertBothWays(frame, c.target, size.width, size.height);
            EXPECT_TRUE(out.vector == library) << getColorSpaceName(c.target) << " " << w << "x" << h;
            EXPECT_TRUE(out.avx2 == library) << getColorSpaceName(c.target) << " " << w << "x" << h;
            EXPECT_TRUE(out.scalar == library) << getColorSpaceName(c.target) << " " << w << "x" << h;
        }
    }
}

// The vector path first converts a few pairs to line its stores up with the
// destination: at every offset within 32 bytes, and for runs shorter than
// those pairs, it writes the library's bytes and nothing outside them.
TEST(Camera2DTest, FullScaleColorIsExactAtEveryDestinationOffset)
{
    std::mt19937 random(13);
    const auto noise = [&random](size_t) { return static_cast<uint8_t>(random()); };
    const int guard = 64;
    for (const Resolution& size : { Resolution(2, 1), Resolution(14, 1), Resolution(98, 3) }) {
        const Buffer src = source(size.width, size.height, noise);
        const int w = static_cast<int>(size.width), h = static_cast<int>(size.height);
        for (bool bgr : { false, true }) {
            cv::Mat expected;
            cv::cvtColor(cv::Mat(h, w, CV_8UC2, src->getData()), expected,
                bgr ? cv::COLOR_YUV2BGR_YUY2 : cv::COLOR_YUV2RGB_YUY2);
            const Bytes library(expected.data, expected.data + expected.total() * 3);
            for (size_t offset = 0; offset < 32; ++offset) {
                Bytes block(library.size() + offset + 2 * guard, kUntouched);
                Buffer dst(new ImageBuffer("test", size, bgr ? COLORSPACE_BGR_888 : COLORSPACE_RGB_888, false));
                dst->setData(block.data() + guard + offset);
                if (bgr)
                    Camera2D::convertYUV422toBGR888(src, dst);
                else
                    Camera2D::convertYUV422toRGB888(src, dst);
                const auto written = block.begin() + guard + static_cast<std::ptrdiff_t>(offset);
                EXPECT_TRUE(std::equal(library.begin(), library.end(), written))
                    << (bgr ? "BGR " : "RGB ") << w << "x" << h << " at offset " << offset;
                EXPECT_EQ(std::count(block.begin(), written, kUntouched), written - block.begin());
                EXPECT_EQ(std::count(written + static_cast<std::ptrdiff_t>(library.size()), block.end(), kUntouched),
                    block.end() - written - static_cast<std::ptrdiff_t>(library.size()));
            }
        }
    }
}

TEST(Camera2DTest, RefusalsLogAndLeaveTheStamp)
{
    enum Source { NONE, NO_BLOCK, OWNING };
    const std::string corrupted = " doesn't exist or is corrupted", input = "Color space of the input buffer is not ";
    const std::string width = "Invalid destination width ", size = "Invalid destination size ";
    const std::string of8x4 = " for a source of size 8x4 in ";
    struct Case {
        const char* name;
        Source src;
        ColorSpace srcSpace, target;
        uint64_t w, h;
        bool destination;
        std::string message;
    } cases[] = {
        { "null source", NONE, COLORSPACE_YUV_422, COLORSPACE_Y_8, 8, 4, true, "the imageBuffer" + corrupted },
        { "no source block", NO_BLOCK, COLORSPACE_YUV_422, COLORSPACE_Y_8, 8, 4, false, "the imageBuffer" + corrupted },
        { "no destination", OWNING, COLORSPACE_YUV_422, COLORSPACE_Y_8, 8, 4, false,
            "the convertedBuffer" + corrupted },
        { "RGB source", OWNING, COLORSPACE_RGB_888, COLORSPACE_Y_8, 8, 4, true, input + "supported anymore." },
        { "BGR source", OWNING, COLORSPACE_BGR_888, COLORSPACE_Y_8, 8, 4, true, input + "supported anymore." },
        { "Y source", OWNING, COLORSPACE_Y_8, COLORSPACE_Y_8, 8, 4, true, input + "supported." },
        { "LAB", OWNING, COLORSPACE_YUV_422, COLORSPACE_LAB_888, 8, 4, true, "Conversion currently not supported." },
        { "ARGB", OWNING, COLORSPACE_YUV_422, COLORSPACE_ARGB_8888, 8, 4, true, "Conversion currently not supported." },
        { "width 0", OWNING, COLORSPACE_YUV_422, COLORSPACE_H_8, 0, 0, true, width + "0 for a source of width 8." },
        { "ratio 0", OWNING, COLORSPACE_YUV_422, COLORSPACE_RGB_888, 9, 4, true, width + "9 for a source of width 8." },
        { "taller", OWNING, COLORSPACE_YUV_422, COLORSPACE_Y_8, 8, 5, true, size + "8x5" + of8x4 + "COLORSPACE_Y_8." },
        { "rows past at ratio 2", OWNING, COLORSPACE_YUV_422, COLORSPACE_BGR_888, 4, 3, true,
            size + "4x3" + of8x4 + "COLORSPACE_BGR_888." },
        { "odd width, a pixel too many", OWNING, COLORSPACE_YUV_422, COLORSPACE_YUV_888, 5, 2, true,
            size + "5x2" + of8x4 + "COLORSPACE_YUV_888." },
        { "average past a not whole ratio", OWNING, COLORSPACE_YUV_422, COLORSPACE_YUV_422, 3, 2, true,
            size + "3x2" + of8x4 + "COLORSPACE_YUV_422." },
    };
    TestCamera2D camera;
    for (const Case& c : cases) {
        Buffer src;
        if (c.src == OWNING) {
            src = source(8, 4, indexed);
            src->setColorSpace(c.srcSpace);
        } else if (c.src == NO_BLOCK) {
            src.reset(new ImageBuffer("test", Resolution(8, 4), COLORSPACE_YUV_422, false));
        }
        Buffer dst;
        if (c.destination)
            dst.reset(new ImageBuffer("test", Resolution(2, 2), COLORSPACE_YUV_422, true));
        LogCapture log;
        EXPECT_FALSE(camera._convertImage(CameraPreferences(Resolution(c.w, c.h), c.target, 30), src, dst)) << c.name;
        EXPECT_EQ(log.messages(), std::vector<std::string>({ "_convertImage(): " + c.message })) << c.name;
        EXPECT_TRUE(log.has(2, "_convertImage(): " + c.message)) << c.name;
        if (c.src == OWNING && c.destination) {
            EXPECT_EQ(dst->getResolution(), Resolution(c.w, c.h)) << c.name;
            EXPECT_EQ(dst->getColorSpace(), c.target) << c.name;
            EXPECT_EQ(dst->getTimeStamp(), 42) << c.name;
        }
    }
    // An odd source width would take the library conversion past its rows.
    LogCapture log;
    EXPECT_TRUE(convert(source(5, 2, indexed), COLORSPACE_RGB_888, 5, 2).empty());
    EXPECT_TRUE(
        log.has(2, "_convertImage(): Invalid destination size 5x2 for a source of size 5x2 in COLORSPACE_RGB_888."));
}

// Exact-size blocks over many size combinations: whatever the dispatcher
// lets through stays inside them (the sanitizer builds check), and the
// regular sizes always go through. Rows of 32 macro-pixels and more reach
// the vector blocks, whose last one may end at the block's end.
TEST(Camera2DTest, DispatcherLetsNothingOutOfBounds)
{
    LogCapture quiet(1);
    TestCamera2D camera;
    const auto check = [&camera](uint64_t W, uint64_t H, uint64_t w, uint64_t h) {
        for (ColorSpace target : kTargets) {
            // new[0] is not null: empty images still have a block.
            std::unique_ptr<uint8_t[]> in(new uint8_t[2 * W * H]);
            std::fill(in.get(), in.get() + 2 * W * H, 77);
            std::unique_ptr<uint8_t[]> out(new uint8_t[w * h * getColorSpaceDepth(target)]);
            const Buffer src(new ImageBuffer("test", Resolution(W, H), COLORSPACE_YUV_422, false));
            const Buffer dst(new ImageBuffer("test", Resolution(w, h), target, false));
            src->setData(in.get());
            dst->setData(out.get());
            const bool ok = camera._convertImage(CameraPreferences(Resolution(w, h), target, 30), src, dst);
            const uint64_t r = W / w;
            const bool library = r == 1 && (target == COLORSPACE_RGB_888 || target == COLORSPACE_BGR_888);
            const bool regular = W == r * w && w % 2 == 0 && h * r <= H && (H > 0 || !library);
            EXPECT_TRUE(ok || !regular) << W << "x" << H << " to " << w << "x" << h << " " << getColorSpaceName(target);
        }
    };
    for (uint64_t W = 1; W <= 12; ++W)
        for (uint64_t H = 0; H <= 4; ++H)
            for (uint64_t w = 1; w <= W; ++w)
                for (uint64_t h = 0; h <= H + 1; ++h)
                    check(W, H, w, h);
    for (uint64_t W : { 64, 66, 96, 128, 130 })
        for (uint64_t H : { 2, 4 })
            for (uint64_t w : { W, W - 2, W / 2, W / 2 - 1, W / 3, W / 4 })
                for (uint64_t h : { H / (W / w), H / (W / w) + 1 })
                    check(W, H, w, h);
}

} // namespace
