#include "fake_camera.h"
#include "log_capture.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <cmath>

using namespace Kelmo::FrameHub;

namespace {

boost::shared_ptr<CameraPreferences> request(uint64_t w, uint64_t h, int rate, ColorSpace cs = COLORSPACE_Y_8)
{
    return boost::make_shared<CameraPreferences>(Resolution(w, h), cs, rate);
}

TEST(CameraNegotiation, ValidityByBoundsAndMessages)
{
    LogCapture log;
    FakeCamera c;
    const std::pair<Resolution, bool> sizes[] = { { { 1, 1 }, true }, { { 0, 0 }, true }, { { 400, 300 }, true },
        { { 640, 480 }, true }, { { 641, 480 }, false }, { { 640, 481 }, false } };
    for (const auto& s : sizes)
        EXPECT_EQ(c.isResolutionValid(s.first), s.second) << s.first.width << "x" << s.first.height;
    const std::pair<int, bool> rates[]
        = { { 0, false }, { -1, false }, { 1, true }, { 7, true }, { 30, true }, { 31, false } };
    for (const auto& r : rates)
        EXPECT_EQ(c.isFrameRateValid(r.first), r.second) << r.first;

    EXPECT_FALSE(c.isValidRequest(*request(641, 480, 0)));
    EXPECT_TRUE(log.has(2, "resolution 641x480 not supported by device."));
    EXPECT_FALSE(c.isValidRequest(*request(640, 480, 0, COLORSPACE_U_8)));
    EXPECT_TRUE(log.has(2, "colorspace 5 not supported by device."));
    EXPECT_FALSE(c.isValidRequest(*request(640, 480, 0)));
    EXPECT_TRUE(log.has(2, "frame rate 0 not supported by the device."));
}

TEST(CameraNegotiation, RepairFieldByField)
{
    struct Row {
        Resolution in;
        ColorSpace inColor;
        int inRate;
        Resolution out;
        ColorSpace outColor;
        int outRate;
        const char* warning;
    } rows[] = {
        { { 320, 240 }, COLORSPACE_Y_8, 0, { 320, 240 }, COLORSPACE_Y_8, 1, "Invalid Framerate, Framerate set to: 1" },
        { { 320, 240 }, COLORSPACE_Y_8, 60, { 320, 240 }, COLORSPACE_Y_8, 30,
            "Invalid Framerate, Framerate set to: 30" },
        { { 1024, 768 }, COLORSPACE_Y_8, 5, { 160, 120 }, COLORSPACE_Y_8, 5,
            "Invalid Resolution, Resolution set to: 160x120" },
        { { 400, 300 }, COLORSPACE_H_8, 5, { 400, 300 }, COLORSPACE_YUV_422, 5,
            "Invalid ColorSpace, ColorSpace set to: 0" },
    };
    for (const Row& row : rows) {
        LogCapture log;
        FakeCamera c;
        CameraPreferences p(row.in, row.inColor, row.inRate);
        EXPECT_TRUE(c.updateRequestToValidRequest(p));
        EXPECT_EQ(p.getResolution(), row.out);
        EXPECT_EQ(p.getColorSpace(), row.outColor);
        EXPECT_EQ(p.getRefreshRate(), row.outRate);
        EXPECT_TRUE(log.has(3, row.warning)) << row.warning;
    }
}

TEST(CameraNegotiation, AddAndRemove)
{
    LogCapture log;
    FakeCamera c;
    EXPECT_FALSE(c.addPreferences(boost::shared_ptr<CameraPreferences>()));
    EXPECT_TRUE(log.has(3, "fake: Invalid preferences, can't insert it."));
    EXPECT_FALSE(c.addPreferences(request(641, 480, 5)));
    EXPECT_TRUE(log.has(2, "fake: Can't add preferences, invalid camera preferences request."));
    EXPECT_FALSE(c.isOpen());

    auto a = request(400, 300, 5);
    EXPECT_TRUE(c.addPreferences(a));
    EXPECT_TRUE(c.isOpen());
    EXPECT_EQ(c.getResolution(), Resolution(400, 300)); // not a native size, still served
    EXPECT_FALSE(c.addPreferences(a));
    EXPECT_TRUE(log.has(2, "fake: Can't insert preferences to camera preferences list."));
    EXPECT_EQ(c.preferenceCount(), 1u);

    auto b = request(640, 480, 15);
    c.addPreferences(b);
    EXPECT_EQ(c.getResolution(), Resolution(640, 480));
    EXPECT_TRUE(c.removePreferences(b)); // the size follows the one left, downwards too
    EXPECT_EQ(c.getResolution(), Resolution(400, 300));
    EXPECT_EQ(c.getFrameRate(), 5);

    EXPECT_FALSE(c.removePreferences(b));
    EXPECT_TRUE(log.has(2, "fake: Can't remove preferences to camera preferences list."));
    EXPECT_FALSE(c.removePreferences(boost::shared_ptr<CameraPreferences>()));
    EXPECT_TRUE(log.has(3, "fake: Invalid preferences, can't remove it."));

    // The last one leaves: closed and back to defaults, whatever close says.
    c.fail("closeDevice");
    EXPECT_TRUE(c.removePreferences(a));
    EXPECT_FALSE(c.isOpen());
    EXPECT_EQ(c.getResolution(), Resolution(160, 120));
    EXPECT_EQ(c.getFrameRate(), 5);

    // A failed open still attaches: _update drives the hooks and opens again.
    FakeCamera d;
    d.fail("openDevice");
    EXPECT_TRUE(d.addPreferences(request(320, 240, 5)));
    EXPECT_EQ(d.count("openDevice"), 2);
    EXPECT_EQ(d.preferenceCount(), 1u);
}

TEST(CameraNegotiation, UpdateOperations)
{
    LogCapture log;
    FakeCamera c;
    auto a = request(320, 240, 5);
    EXPECT_FALSE(c.updateResolutionPreferences(a, Resolution(160, 120))); // not attached, nothing logged
    EXPECT_TRUE(log.records().empty());
    c.addPreferences(a);
    ASSERT_TRUE(c.getImageBuffer(*a) != nullptr);
    for (const auto& b : c.converted())
        b->lockCount = 0;

    EXPECT_FALSE(c.updateResolutionPreferences(a, Resolution(641, 480)));
    EXPECT_TRUE(log.has(2, "fake can't support requested resolution (641x480)."));
    EXPECT_EQ(c.converted().size(), 1u); // nothing dropped on a refusal
    EXPECT_FALSE(c.updateColorSpacePreferences(a, COLORSPACE_H_8));
    EXPECT_TRUE(log.has(2, "fake can't support requested colorSpace (7)."));
    EXPECT_FALSE(c.updateFrameRatePreferences(a, 31));
    EXPECT_TRUE(log.has(2, "fake can't support requested frame rate (31)."));

    EXPECT_TRUE(c.updateResolutionPreferences(a, Resolution(640, 480)));
    EXPECT_EQ(c.getResolution(), Resolution(640, 480));
    EXPECT_EQ(c.converted().size(), 0u); // the old format's free buffer went
    EXPECT_TRUE(c.updateColorSpacePreferences(a, COLORSPACE_RGB_888));
    EXPECT_EQ(a->getColorSpace(), COLORSPACE_RGB_888);
    EXPECT_TRUE(c.updateFrameRatePreferences(a, 30));
    EXPECT_EQ(c.getFrameRate(), 30);
}

TEST(CameraParameters, KeepAliveAndUnsupported)
{
    LogCapture log;
    FakeCamera c;
    EXPECT_EQ(c.getParameter(PARAMETER_KEEP_ALIVE), 0);
    EXPECT_TRUE(c.setParameter(PARAMETER_KEEP_ALIVE, 5));
    EXPECT_EQ(c.getParameter(PARAMETER_KEEP_ALIVE), 5);

    EXPECT_EQ(c.getParameter(PARAMETER_BRIGHTNESS), INVALID_PARAMETER_VALUE);
    EXPECT_TRUE(log.has(2, "fake: parameter PARAMETER_BRIGHTNESS unsupported."));
    EXPECT_FALSE(c.setParameter(PARAMETER_BUFFER_SIZE, 3));
    EXPECT_FALSE(c.resetParameter(PARAMETER_GAIN));
    const auto info = [&c](Parameter p) {
        const ParameterInfo i = c.getParameterInfo(p);
        return std::vector<int>({ i.minimum, i.maximum, i.step, i.defaultValue });
    };
    const int invalid = INVALID_PARAMETER_VALUE;
    EXPECT_EQ(info(PARAMETER_BUFFER_SIZE), std::vector<int>({ invalid, invalid, 0, invalid }));
    EXPECT_EQ(info(PARAMETER_VERTICAL_FLIP), std::vector<int>({ 0, 1, 1, 0 }));
    EXPECT_EQ(info(PARAMETER_KEEP_ALIVE), std::vector<int>({ 0, 1, 1, 0 }));
}

TEST(CameraParameters, KeepAliveHoldsTheCameraOpenWhileNobodyIsAttached)
{
    struct Row {
        bool subscriber;
        int before;
        bool closes;
    } rows[] = { { false, 1, true }, { true, 1, false }, { false, 0, false } };
    for (const Row& row : rows) {
        FakeCamera c;
        auto a = request(320, 240, 15);
        if (row.subscriber)
            c.addPreferences(a);
        else
            c.open();
        c.setParameter(PARAMETER_KEEP_ALIVE, row.before);
        EXPECT_TRUE(c.setParameter(PARAMETER_KEEP_ALIVE, 0));
        EXPECT_EQ(c.getParameter(PARAMETER_KEEP_ALIVE), 0);
        EXPECT_EQ(c.isOpen(), !row.closes) << row.subscriber << row.before;
    }
    FakeCamera c;
    c.open();
    c.setParameter(PARAMETER_KEEP_ALIVE, 1);
    c.fail("resetDevice");
    EXPECT_FALSE(c.resetParameters());
    EXPECT_FALSE(c.isOpen());

    // The last leaver leaves it open at the defaults and the slowest rate.
    FakeCamera d;
    auto a = request(320, 240, 15);
    d.addPreferences(a);
    ASSERT_TRUE(d.setParameter(PARAMETER_KEEP_ALIVE, 1));
    d.takeCalls();
    EXPECT_TRUE(d.removePreferences(a));
    EXPECT_TRUE(d.isOpen());
    EXPECT_EQ(d.getResolution(), Resolution(160, 120));
    EXPECT_EQ(d.count("setFrameRate 1"), 1);

    // open() resets the software parameters, and clearing keep-alive with
    // nobody attached closes the camera again.
    FakeCamera e;
    e.open();
    ASSERT_TRUE(e.setParameter(PARAMETER_KEEP_ALIVE, 1));
    e.close();
    EXPECT_TRUE(e.open());
    EXPECT_FALSE(e.isOpen());
    e.open();
    e.setParameter(PARAMETER_KEEP_ALIVE, 1);
    e.close();
    EXPECT_TRUE(e.start());
    EXPECT_TRUE(e.isStarted());
    EXPECT_FALSE(e.isOpen());
}

TEST(CameraParameters, FlipsAreRelativeToTheDefault)
{
    struct Row {
        Parameter p;
        bool defaultH, defaultV;
        int value; // -1: reset
        int passed;
    } rows[] = { { PARAMETER_VERTICAL_FLIP, false, true, 1, 0 }, { PARAMETER_VERTICAL_FLIP, false, false, 1, 1 },
        { PARAMETER_VERTICAL_FLIP, false, true, 0, 1 }, { PARAMETER_HORIZONTAL_FLIP, true, false, -1, 1 },
        { PARAMETER_HORIZONTAL_FLIP, false, false, -1, 0 } };
    for (const Row& row : rows) {
        FakeCamera c;
        c.setDefaultFlip(row.defaultH, row.defaultV);
        EXPECT_TRUE(row.value < 0 ? c.resetParameter(row.p) : c.setParameter(row.p, row.value));
        ASSERT_EQ(c.hardwareValues.size(), 1u);
        EXPECT_EQ(c.hardwareValues[0], row.passed);
        // The base hook answers the invalid value, which differs from both.
        EXPECT_EQ(c.getParameter(row.p), 1);
    }
}

TEST(CameraGeometry, Conversions)
{
    FakeCamera c;
    ASSERT_TRUE(c.setFieldOfView(FieldOfView(1.0f, 0.5f)));
    typedef std::vector<float> V;
    EXPECT_EQ(c.getImagePositionFromAngularPosition({ 0, 0 }), (V { 0.5f, 0.5f }));
    EXPECT_EQ(c.getImagePositionFromAngularPosition({ 0.5f, 0.25f }), (V { 0, 1 }));
    EXPECT_EQ(c.getAngularPositionFromImagePosition({ 0, 1 }), (V { 0.5f, 0.25f }));
    EXPECT_EQ(c.getImageSizeFromAngularSize({ 0.25f, 0.25f }), (V { 0.25f, 0.5f }));
    EXPECT_EQ(c.getAngularSizeFromImageSize({ 1, 1 }), (V { 1.0f, 0.5f }));
    EXPECT_EQ(c.getImageInfoFromAngularInfo({ 0, 0, 1, 0.5f }), (V { 0.5f, 0.5f, 1, 1 }));
    EXPECT_EQ(c.getImageInfoFromAngularInfoWithResolution({ 0, 0, 1, 0.5f }, Resolution(640, 480)),
        (V { 320, 240, 640, 480 }));
    EXPECT_EQ(c.getImageInfoFromAngularInfoWithResolution({ 0, 0, 1, 0.5f }, Resolution(400, 300)).size(), 4u);

    // Round trips within float precision.
    for (float x : { -0.3f, 0.0f, 0.1f, 0.45f })
        for (float y : { -0.2f, 0.0f, 0.24f }) {
            V back = c.getAngularPositionFromImagePosition(c.getImagePositionFromAngularPosition({ x, y }));
            EXPECT_NEAR(back[0], x, 1e-6f);
            EXPECT_NEAR(back[1], y, 1e-6f);
        }
}

TEST(CameraGeometry, Failures)
{
    LogCapture log;
    FakeCamera c;
    typedef std::vector<float> V;
    EXPECT_FALSE(c.setFieldOfView(FieldOfView(1.0f, 0.0f)));
    EXPECT_FALSE(c.setFieldOfView(FieldOfView(NAN, 1.0f)));
    EXPECT_TRUE(log.has(2, "Invalid Field Of View to set"));
    EXPECT_EQ(c.getFieldOfView().horizontal, 0.0f);
    // With no field of view: infinities or NaN, no error; products are 0.
    EXPECT_TRUE(std::isinf(c.getImageSizeFromAngularSize({ 1, 1 })[0]));
    EXPECT_EQ(c.getAngularSizeFromImageSize({ 1, 1 }), (V { 0, 0 }));

    const std::string point = ": Invalid parameter size\nPlease provide a 2D Point.";
    const std::string info = ": Invalid parameter size (expected 4, actual ";
    struct Row {
        V result;
        std::string message;
    } rows[] = {
        { c.getImageSizeFromAngularSize({ 1 }), "getImageSizeFromAngularSize()" + point },
        { c.getImagePositionFromAngularPosition({}), "getImagePositionFromAngularPosition()" + point },
        { c.getAngularPositionFromImagePosition({ 1, 2, 3 }), "getAngularPositionFromImagePosition()" + point },
        { c.getAngularSizeFromImageSize({ 1 }), "getAngularSizeFromImageSize()" + point },
        { c.getAngularSizeFromImageSize({ 1.5f, 0.5f }), "getAngularSizeFromImageSize(): Invalid input parameters" },
        { c.getImageInfoFromAngularInfo({ 1, 2, 3 }), "getImageInfoFromAngularInfo()" + info + "3)." },
        { c.getImageInfoFromAngularInfoWithResolution({ 1 }, Resolution(1, 1)),
            "getImageInfoFromAngularInfoWithResolution()" + info + "1)." },
        { c.getImageInfoFromAngularInfoWithResolution({ 0, 0, 0, 0 }, Resolution(641, 1)),
            "getImageInfoFromAngularInfoWithResolution(): Invalid resolution (actual 641x1)." },
    };
    for (const Row& row : rows) {
        EXPECT_TRUE(row.result.empty()) << row.message;
        EXPECT_TRUE(log.has(2, row.message)) << row.message;
    }
    // NaN is neither below 0 nor above 1.
    EXPECT_EQ(c.getAngularSizeFromImageSize({ NAN, 0.5f }).size(), 2u);
}

} // namespace
