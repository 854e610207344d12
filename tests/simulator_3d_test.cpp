#include "fake_camera.h"
#include "hub_fixture.h"
#include "log_capture.h"

#include "pipeline/camera_3d.h"
#include "simulator/camera_simulator_3d.h"

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>
#include <gtest/gtest.h>

#include <cstring>

using namespace Kelmo::FrameHub;

namespace {

typedef std::vector<uint16_t> Samples;

CameraInfo info3D(const std::string& name = "depth")
{
    return simulatorInfo(name, "Simulator3D", { { 80, 60 }, { 320, 240 }, { 640, 480 } },
        { COLORSPACE_DEPTH_16, COLORSPACE_XYZ_323232 }, { 5, 30 });
}

Samples ramp(uint64_t w, uint64_t h, uint16_t base)
{
    Samples s(w * h);
    for (uint64_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<uint16_t>(base + i);
    return s;
}

// Reads a store the way the rings do, without the freshness rule.
struct Reader : CameraSimulator3D {
    static boost::shared_ptr<ImageBuffer> read(CameraSimulator3D& camera, bool infrared)
    {
        auto buffer = boost::make_shared<ImageBuffer>("copy", Resolution(1, 1), COLORSPACE_DEPTH_16, true);
        bool ok;
        if (infrared) {
            bool (CameraSimulator3D::*hook)(const CameraPreferences&, boost::shared_ptr<ImageBuffer>)
                = &Reader::_getExtraColorSpaceBuffer;
            ok = (camera.*hook)(CameraPreferences(Resolution(), COLORSPACE_INFRARED_16, 1), buffer);
        } else {
            bool (CameraSimulator3D::*hook)(boost::shared_ptr<ImageBuffer>) = &Reader::_getDirectRawImage;
            ok = (camera.*hook)(buffer);
        }
        EXPECT_TRUE(ok);
        return buffer;
    }
};

Samples samplesOf(const boost::shared_ptr<ImageBuffer>& b)
{
    const uint16_t* p = reinterpret_cast<const uint16_t*>(b->getData());
    return Samples(p, p + b->getSize() / 2);
}

boost::shared_ptr<CameraSimulator3D> make3D(const Resolution& size)
{
    auto camera = boost::dynamic_pointer_cast<CameraSimulator3D>(CameraBuilder(info3D()).getCamera());
    camera->setResolution(size);
    return camera;
}

TEST(Simulator3D, StoresAreIndependent)
{
    ManualClock clock;
    LogCapture log;
    auto camera = make3D(Resolution(80, 60));
    const std::string missing = "_getDirectRawImageBuffer(): Could not get image for subscriber.\nPlease check that "
                                "the simulator is running.";
    Samples ir = ramp(80, 60, 1000);
    ASSERT_TRUE(camera->putImage(Resolution(80, 60), COLORSPACE_INFRARED_16, ir.data()));

    // Depth after infrared only: a zero image, stamp 0, and the message.
    auto depth = Reader::read(*camera, false);
    EXPECT_EQ(depth->getTimeStamp(), 0);
    EXPECT_EQ(samplesOf(depth), Samples(80 * 60, 0));
    EXPECT_EQ(depth->getColorSpace(), COLORSPACE_DEPTH_16);
    EXPECT_TRUE(log.has(2, missing));

    auto infrared = Reader::read(*camera, true);
    EXPECT_EQ(samplesOf(infrared), ir);
    EXPECT_EQ(infrared->getColorSpace(), COLORSPACE_INFRARED_16);
    EXPECT_GT(infrared->getTimeStamp(), 0);

    clock.advanceMs(10);
    Samples d = ramp(80, 60, 7);
    ASSERT_TRUE(camera->putImage(Resolution(80, 60), COLORSPACE_DEPTH_16, d.data()));
    EXPECT_EQ(samplesOf(Reader::read(*camera, false)), d);
    EXPECT_EQ(Reader::read(*camera, true)->getTimeStamp(), infrared->getTimeStamp());

    // Infrared before any infrared frame: the message, and an infrared buffer.
    camera->setResolution(Resolution(320, 240));
    log.clear();
    auto fresh = Reader::read(*camera, true);
    EXPECT_TRUE(log.has(2, missing));
    EXPECT_EQ(fresh->getColorSpace(), COLORSPACE_INFRARED_16);
    for (const auto& r : log.records())
        EXPECT_EQ(r.function, "_getExtraColorSpaceBuffer");
}

TEST(Simulator3D, ModelColourSpacesAndRefusals)
{
    LogCapture log;
    auto camera = boost::dynamic_pointer_cast<CameraSimulator3D>(CameraBuilder(info3D()).getCamera());
    Samples s = ramp(80, 60, 0);
    EXPECT_FALSE(camera->putImage(Resolution(80, 60), COLORSPACE_XYZ_323232, s.data()));
    EXPECT_TRUE(log.has(2, "putImage(): Colorspace not supported. Please use Depth ColorSpace."));
    EXPECT_FALSE(camera->putImage(Resolution(641, 480), COLORSPACE_DEPTH_16, s.data()));
    EXPECT_TRUE(log.has(2, "putImage(): Unknown resolution from simulator!"));
    EXPECT_FALSE(camera->isOpen()); // refused before opening
    EXPECT_FALSE(camera->putImage(Resolution(80, 60), COLORSPACE_DEPTH_16, nullptr));
    EXPECT_FALSE(camera->putImage(Resolution(0, 60), COLORSPACE_DEPTH_16, s.data()));
    Samples big = ramp(320, 240, 0);
    EXPECT_FALSE(camera->putImage(Resolution(320, 120), COLORSPACE_DEPTH_16, big.data())); // fx 4, fy 2
    EXPECT_EQ(camera->getModel(), "Simulator3D");
    EXPECT_TRUE(camera->isColorSpaceValid(COLORSPACE_INFRARED_16));
    EXPECT_TRUE(camera->isExtraColorSpace(COLORSPACE_INFRARED_16));
    EXPECT_FALSE(camera->isExtraColorSpace(COLORSPACE_DEPTH_16));
    EXPECT_TRUE(camera->isColorSpaceValid(COLORSPACE_DISTANCE_32));
    EXPECT_FALSE(camera->isColorSpaceValid(COLORSPACE_YUV_422));
    CameraPreferences expected = camera->getExpectedImageParameters();
    EXPECT_EQ(expected.getColorSpace(), COLORSPACE_DEPTH_16); // the camera's own, unlike 2D
    EXPECT_EQ(expected.getResolution(), Resolution(80, 60));
}

TEST(Simulator3D, ResamplingBothWays)
{
    struct Row {
        Resolution frame, camera;
        uint64_t factor;
        bool enlarge;
    } rows[] = { { { 640, 480 }, { 80, 60 }, 8, false }, { { 320, 240 }, { 80, 60 }, 4, false },
        { { 80, 60 }, { 320, 240 }, 4, true }, { { 80, 60 }, { 640, 480 }, 8, true } };
    for (const Row& row : rows) {
        auto camera = make3D(row.camera);
        Samples frame = ramp(row.frame.width, row.frame.height, 3);
        ASSERT_TRUE(camera->putImage(row.frame, COLORSPACE_DEPTH_16, frame.data()));
        Samples expected;
        for (uint64_t y = 0; y < row.camera.height; ++y)
            for (uint64_t x = 0; x < row.camera.width; ++x) {
                const uint64_t sx = row.enlarge ? x / row.factor : x * row.factor;
                const uint64_t sy = row.enlarge ? y / row.factor : y * row.factor;
                expected.push_back(frame[sy * row.frame.width + sx]);
            }
        EXPECT_EQ(samplesOf(Reader::read(*camera, false)), expected) << row.frame.width;
    }
    // Not exact multiples: clipped to the store, no write outside it.
    auto camera = make3D(Resolution(80, 60));
    Samples odd = ramp(161, 121, 0);
    EXPECT_TRUE(camera->putImage(Resolution(161, 121), COLORSPACE_DEPTH_16, odd.data()));
    Samples small = ramp(39, 29, 0);
    camera->setResolution(Resolution(80, 60));
    EXPECT_TRUE(camera->putImage(Resolution(39, 29), COLORSPACE_DEPTH_16, small.data()));
    EXPECT_EQ(samplesOf(Reader::read(*camera, false)).size(), 80u * 60);
}

// A depth and an infrared frame through the public hub, beside a 2D camera.
TEST(Simulator3D, EndToEndThroughTheHub)
{
    ManualClock clock;
    FrameHub hub({ simulator2D("color"), info3D("depth") });
    typedef double (*Read)(const unsigned char*);
    const Read byte1 = [](const unsigned char* p) -> double { return p[1]; };
    const Read sample1 = [](const unsigned char* p) -> double { return reinterpret_cast<const uint16_t*>(p)[1]; };
    const Read x1 = [](const unsigned char* p) -> double { return reinterpret_cast<const float*>(p)[3]; };
    struct Row {
        ColorSpace space;
        Resolution size;
        Read read; // the second pixel's first value, against `value`
        double value;
    } rows[] = { { COLORSPACE_Y_8, { 320, 240 }, byte1, (1500 - 400) >> 4 },
        { COLORSPACE_RGB_888, { 320, 240 }, nullptr, 0 }, { COLORSPACE_DEPTH_16, { 640, 480 }, sample1, 1500 },
        { COLORSPACE_XYZ_323232, { 320, 240 }, x1, 1500 }, // depth first
        { COLORSPACE_DISTANCE_32, { 320, 240 }, nullptr, 0 }, { COLORSPACE_INFRARED_16, { 320, 240 }, sample1, 202 } };
    std::vector<std::string> names;
    for (const Row& row : rows)
        names.push_back(hub.subscribeCamera("s", "depth", row.size, row.space, 30));
    const std::string color = hub.subscribeCamera("color", "color", Resolution(160, 120), COLORSPACE_RGB_888, 30);
    EXPECT_EQ(hub.getCameraResolution("depth"), Resolution(640, 480));

    CameraPreferences expected = hub.getExpectedImageParameters("depth");
    ASSERT_EQ(expected.getColorSpace(), COLORSPACE_DEPTH_16);
    Samples depth(640 * 480, 1500), infrared = ramp(640, 480, 200);
    depth[0] = 0;
    ASSERT_TRUE(hub.putImage("depth", Resolution(640, 480), COLORSPACE_DEPTH_16, depth.data()));
    ASSERT_TRUE(hub.putImage("depth", Resolution(640, 480), COLORSPACE_INFRARED_16, infrared.data()));
    ASSERT_TRUE(feed(hub, "color", 1));

    for (size_t i = 0; i < names.size(); ++i) {
        SCOPED_TRACE(getColorSpaceName(rows[i].space));
        auto image = hub.getImage(names[i]);
        ASSERT_TRUE(image);
        EXPECT_EQ(image->getColorSpace(), rows[i].space);
        EXPECT_EQ(image->getResolution(), rows[i].size);
        EXPECT_EQ(image->getCameraName(), "depth");
        if (rows[i].read) {
            EXPECT_EQ(rows[i].read(image->getData()), rows[i].value);
        }
        EXPECT_TRUE(hub.releaseImage(names[i]));
    }
    auto rgb = hub.getImage(color);
    ASSERT_TRUE(rgb);
    EXPECT_EQ(rgb->getCameraName(), "color");
    hub.releaseImage(color);
}

} // namespace
