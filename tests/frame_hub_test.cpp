#include "fake_camera.h"
#include "hub_fixture.h"
#include "log_capture.h"

#include "pipeline/camera_2d.h"

#include <kelmoerror/kelmo_error.h>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

using namespace Kelmo::FrameHub;

namespace {

class Hub : public ::testing::Test {
protected:
    ManualClock clock;
    FrameHub hub { { simulator2D("front"), simulator2D("back") } };

    // The converted image equals the routine's output on the raw frame.
    void expectConverted(const std::string& name, bool (*routine)(Camera2D::Buffer, Camera2D::Buffer))
    {
        auto bytes = [](ImageBuffer& b) { return std::vector<uint8_t>(b.getData(), b.getData() + b.getSize()); };
        auto image = hub.getImage(name);
        ASSERT_TRUE(image) << name;
        EXPECT_EQ(image->getResolution(), hub.getResolution(name));
        EXPECT_EQ(image->getColorSpace(), hub.getColorSpace(name));
        const std::vector<uint8_t> pixels = bytes(*image);
        ASSERT_TRUE(hub.releaseImage(name));

        ASSERT_TRUE(hub.getDirectRawImage(name));
        EXPECT_FALSE(hub.getDirectRawImage(name)); // processing: refused
        hub.releaseDirectRawImage(name);
        auto reference = boost::make_shared<ImageBuffer>("ref", hub.getResolution(name), hub.getColorSpace(name), true);
        routine(hub.getDirectRawImage(name), reference);
        hub.releaseDirectRawImage(name);
        EXPECT_EQ(bytes(*reference), pixels) << name;
    }
};

TEST_F(Hub, RegistrationLeavesCamerasClosedFirstIsDefault)
{
    EXPECT_EQ(hub.getDefaultActiveCamera(), "front");
    EXPECT_EQ(hub.getCameraIndexes(), (std::vector<std::string> { "back", "front" }));
    EXPECT_FALSE(hub.isCameraOpen("front"));
    EXPECT_FALSE(hub.addCamera(simulator2D("front"))); // name taken
    EXPECT_EQ(hub.getCameraModel("Default"), "Simulator2D");
    EXPECT_EQ(hub.getCameraName("Default"), "front");

    CameraInfo bad = simulator2D("third");
    bad.model = "Unknown";
    EXPECT_THROW(FrameHub({ simulator2D("x"), bad }), Kelmo::KelmoError);
    EXPECT_THROW(hub.addCamera(bad), Kelmo::KelmoError);
    EXPECT_EQ(hub.getCameraIndexes().size(), 2u);
}

TEST_F(Hub, SeveralSubscribersOnOneCameraInTheirOwnFormats)
{
    const std::string rgb = hub.subscribeCamera("rgb", "front", Resolution(640, 480), COLORSPACE_RGB_888, 30);
    const std::string y = hub.subscribeCamera("y", "front", Resolution(320, 240), COLORSPACE_Y_8, 15);
    const std::string hsy = hub.subscribeCamera("hsy", "front", Resolution(160, 120), COLORSPACE_HSY_888, 5);
    ASSERT_EQ(rgb, "rgb_0");
    EXPECT_EQ(hub.getSubscribers(), (std::vector<std::string> { "hsy_0", "rgb_0", "y_0" }));
    EXPECT_TRUE(hub.isCameraOpen("front"));
    EXPECT_EQ(hub.getCameraResolution("front"), Resolution(640, 480)); // the largest request
    EXPECT_EQ(hub.getCameraFrameRate("front"), 30);
    ASSERT_TRUE(feed(hub, "front", 1));
    expectConverted(rgb, &Camera2D::convertYUV422toRGB888);
    expectConverted(y, &Camera2D::convertYUV422toY8);
    expectConverted(hsy, &Camera2D::convertYUV422toHSY888);
}

TEST_F(Hub, OneSubscriberOnSeveralCameras)
{
    const std::string both = hub.subscribeCameras("both", { "front", "back" },
        { Resolution(320, 240), Resolution(160, 120) }, { COLORSPACE_Y_8, COLORSPACE_BGR_888 }, 15);
    ASSERT_EQ(both, "both_0");
    feed(hub, "front", 1);
    feed(hub, "back", 2);
    EXPECT_FALSE(hub.getImage(both)); // multi-stream only
    auto images = hub.getImages(both);
    ASSERT_EQ(images.size(), 2u);
    EXPECT_EQ(images[0]->getCameraName(), "front");
    EXPECT_EQ(images[0]->getColorSpace(), COLORSPACE_Y_8);
    EXPECT_EQ(images[1]->getCameraName(), "back");
    EXPECT_EQ(images[1]->getResolution(), Resolution(160, 120));
    EXPECT_TRUE(hub.getImages(both).empty()); // still processing
    EXPECT_EQ(hub.releaseImages(both), (std::vector<bool> { true, true }));
    EXPECT_EQ(hub.releaseImages(both), (std::vector<bool> { true, true })); // nothing held
    EXPECT_TRUE(hub.releaseDirectRawImages(both).empty());
    EXPECT_EQ(hub.getResolutions(both), (std::vector<Resolution> { { 320, 240 }, { 160, 120 } }));
    EXPECT_EQ(hub.getColorSpaces(both), (std::vector<ColorSpace> { COLORSPACE_Y_8, COLORSPACE_BGR_888 }));

    // Moving to back alone keeps it multi-stream, with the request it had.
    EXPECT_EQ(hub.setActiveCameras(both, { "back" }), (std::vector<bool> { true }));
    EXPECT_EQ(hub.getResolutions(both), (std::vector<Resolution> { { 160, 120 } }));
    EXPECT_TRUE(hub.setActiveCameras(both, { "back", "back" }).empty());
    EXPECT_EQ(hub.setActiveCameras(both, { "back", "nowhere" }), (std::vector<bool> { false, false }));

    // One camera given: an ordinary mono-stream subscriber.
    const std::string one = hub.subscribeCameras("one", { "back" }, { Resolution(160, 120) }, { COLORSPACE_Y_8 }, 5);
    EXPECT_TRUE(hub.getImages(one).empty());
    EXPECT_TRUE(hub.getImage(one));
    EXPECT_TRUE(hub.releaseImage(one));
}

TEST_F(Hub, AliasFollowsTheDefaultCamera)
{
    const std::string top = hub.subscribeCamera("top", "Default", Resolution(320, 240), COLORSPACE_Y_8, 15);
    EXPECT_EQ(hub.getActiveCamera(top), "front");
    feed(hub, "front", 1);
    feed(hub, "back", 2);
    auto image = hub.getImage(top);
    EXPECT_EQ(image->getCameraName(), "front");
    EXPECT_TRUE(hub.setDefaultActiveCamera("back")); // moves it even while it holds an image
    EXPECT_TRUE(hub.releaseImage(top)); // the release still reaches front
    EXPECT_EQ(hub.getActiveCamera(top), "back");
    EXPECT_FALSE(hub.isCameraOpen("front")); // its last request left
    clock.advanceMs(1000);
    feed(hub, "back", 3);
    image = hub.getImage(top);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->getCameraName(), "back");
    hub.releaseImage(top);

    // Leaving the alias for good.
    EXPECT_TRUE(hub.setActiveCamera(top, "front"));
    EXPECT_TRUE(hub.setDefaultActiveCamera("back"));
    EXPECT_EQ(hub.getActiveCamera(top), "front");
    LogCapture log;
    EXPECT_FALSE(hub.setActiveCamera(top, "Default"));
    EXPECT_TRUE(log.has(2, "Camera \"Default\" not found. Please verify the camera index."));
}

TEST_F(Hub, RequestRepairedAndReadBack)
{
    LogCapture log;
    const std::string name = hub.subscribeCamera("fix", "front", Resolution(1024, 768), COLORSPACE_H_8, 60);
    ASSERT_EQ(name, "fix_0");
    EXPECT_TRUE(log.has(3,
        "Can't add subscriber fix to Frame Hub\nSome camera parameter values are not "
        "supported.\nTry to change the camera parameter requested automatically..."));
    EXPECT_EQ(hub.getResolution(name), Resolution(160, 120));
    EXPECT_EQ(hub.getColorSpace(name), COLORSPACE_H_8);
    EXPECT_EQ(hub.getFrameRate(name), 30);

    // A colour space no 2D camera serves falls to the camera's first one.
    EXPECT_EQ(hub.subscribeCamera("depth", "front", Resolution(320, 240), COLORSPACE_DEPTH_16, 5), "depth_0");
    EXPECT_EQ(hub.getColorSpace("depth_0"), COLORSPACE_YUV_422);
}

TEST_F(Hub, ProcessingRefusalsAndRelease)
{
    LogCapture log;
    const std::string name = hub.subscribeCamera("top", "front", Resolution(320, 240), COLORSPACE_Y_8, 15);
    feed(hub, "front", 1);
    ASSERT_TRUE(hub.getImage(name));
    EXPECT_FALSE(hub.getImage(name));
    EXPECT_TRUE(log.has(2,
        "Subscriber \"top_0\" is still processing. Please verify you have release previous "
        "image(s)."));
    EXPECT_FALSE(hub.setResolution(name, Resolution(160, 120)));
    EXPECT_TRUE(hub.setFrameRate(name, 5)); // allowed while processing
    EXPECT_FALSE(hub.unsubscribe(name));
    EXPECT_TRUE(log.has(2,
        "Subscriber \"top_0\" has not released all its requested buffers. Please call "
        "releaseImage(s) before."));
    EXPECT_TRUE(hub.releaseDirectRawImage(name)); // either release kind ends the hand-out
    EXPECT_TRUE(hub.releaseImage(name)); // nothing held
    EXPECT_TRUE(hub.setResolution(name, Resolution(160, 120)));
    EXPECT_TRUE(hub.unsubscribe(name));
    EXPECT_FALSE(hub.unsubscribe(name));
    EXPECT_TRUE(log.has(2, "Can't unsubscribe \"top_0\", subscriber is unknown."));
    EXPECT_FALSE(hub.isCameraOpen("front"));
}

TEST_F(Hub, KeepAliveKeepsTheCameraOpen)
{
    const std::string name = hub.subscribeCamera("top", "front", Resolution(320, 240), COLORSPACE_Y_8, 15);
    EXPECT_TRUE(hub.setCameraParameter("front", PARAMETER_KEEP_ALIVE, 1));
    EXPECT_TRUE(hub.unsubscribe(name));
    EXPECT_TRUE(hub.isCameraOpen("front"));
    EXPECT_EQ(hub.getCameraResolution("front"), Resolution(160, 120));
    EXPECT_TRUE(hub.setCameraParameter("front", PARAMETER_KEEP_ALIVE, 0));
    EXPECT_FALSE(hub.isCameraOpen("front"));
}

TEST_F(Hub, FailurePathsAndTheirTexts)
{
    LogCapture log;
    struct Row {
        std::string result;
        const char* message;
    } rows[] = {
        { hub.subscribeCamera("top", "nowhere", Resolution(1, 1), COLORSPACE_Y_8, 5),
            "Can't add subscriber top to Frame Hub\nCamera index nowhere is invalid.\nPlease change the camera index "
            "requested." },
        { hub.subscribeCameras("", { "front" }, { Resolution(1, 1) }, { COLORSPACE_Y_8 }, 5),
            "Can't add subscriber  to Frame Hub.\nSome input parameters are empty.\nPlease verify parameters" },
        { hub.subscribeCameras("m", { "front", "front" }, { Resolution(1, 1) }, { COLORSPACE_Y_8 }, 5),
            "subscribeCameras(): Can't add subscriber m to Frame Hub.\nInvalid input parameters, list contains 2 "
            "elements but only 1 different elements (using several time the same camera is forbidden).\nPlease "
            "correct camera indexes list." },
        { hub.subscribeCameras("m", { "front", "back" }, { Resolution(1, 1) }, { COLORSPACE_Y_8 }, 5),
            "Can't add subscriber m to Frame Hub.\nParameters list don't have the same size.Please verify parameters" },
        { hub.subscribeCameras("m", { "front", "Default" }, { Resolution(1, 1), Resolution(1, 1) },
              { COLORSPACE_Y_8, COLORSPACE_Y_8 }, 5),
            "Can't add subscriber m to Frame Hub.\nCamera index Default is invalid.\nPlease change the camera index "
            "requested." },
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.result, "") << row.message;
        EXPECT_TRUE(log.has(2, row.message)) << row.message;
    }
    EXPECT_TRUE(hub.getSubscribers().empty()); // failures changed nothing
    EXPECT_FALSE(hub.isCameraOpen("front"));
    EXPECT_FALSE(hub.getImage("nobody"));
    EXPECT_TRUE(log.has(2, "Subscriber \"nobody\" not found. Please verify that you are subscribed to FrameHub."));
}

TEST_F(Hub, PassThroughNeutralValues)
{
    LogCapture log;
    EXPECT_EQ(hub.getCameraParameter("nowhere", PARAMETER_KEEP_ALIVE), 233493508);
    EXPECT_TRUE(log.has(2, "Camera \"nowhere\" not found. Please verify the camera index."));
    const uint64_t ones = ~0ULL;
    auto range = hub.getCameraResolutionRange("nowhere");
    EXPECT_EQ(range.first, Resolution(ones, ones));
    EXPECT_EQ(range.second, Resolution(ones, ones));
    EXPECT_EQ(hub.getCameraFrameRateRange("nowhere"), std::make_pair(0, 0));
    EXPECT_EQ(hub.getCameraFrameRate("nowhere"), -1);
    EXPECT_EQ(hub.getCameraColorSpace("nowhere"), COLORSPACE_UNKNOWN);
    EXPECT_EQ(hub.getCameraParameterInfo("nowhere", PARAMETER_KEEP_ALIVE).step, 0);
    EXPECT_TRUE(hub.getAngularSizeFromImageSize("nowhere", { 1, 1 }).empty());
    EXPECT_EQ(hub.getColorSpace("nobody"), COLORSPACE_UNKNOWN);
    EXPECT_EQ(hub.getFrameRate("nobody"), -1);

    std::vector<uint8_t> rgb = rgbFrame(160, 120, 0);
    EXPECT_FALSE(hub.putImage("Default", Resolution(160, 120), COLORSPACE_RGB_888, rgb.data()));
    EXPECT_EQ(hub.getExpectedImageParameters("Default").getColorSpace(), COLORSPACE_UNKNOWN);
    EXPECT_TRUE(hub.openCamera("Default"));
    EXPECT_TRUE(hub.isCameraOpen("front"));
    EXPECT_TRUE(hub.isCamera3DPlugged(false));
    EXPECT_EQ(hub.getCameraFrameRateRange("back"), std::make_pair(1, 30));
    EXPECT_EQ(hub.getImageInfoFromAngularInfoWithResolution("front", { 0, 0, 1, 0.75f }, Resolution(640, 480)),
        (std::vector<float> { 320, 240, 640, 480 }));
}

// Freshness follows a clock that never steps: whichever way the wall clock
// jumps, a client gets the new frame (not a frozen one), and a second client
// within the period shares it (not a starved cache that converts again).
TEST_F(Hub, SteppedWallClockNeitherFreezesNorStarves)
{
    const std::string a = hub.subscribeCamera("a", "front", Resolution(320, 240), COLORSPACE_RGB_888, 30);
    const std::string b = hub.subscribeCamera("b", "front", Resolution(320, 240), COLORSPACE_RGB_888, 30);
    const int64_t periodMs = 1000 / 30;
    for (int64_t stepMs : { int64_t(0), int64_t(-3600000), int64_t(3600000), int64_t(3600000) }) {
        SCOPED_TRACE(stepMs);
        clock.advanceMs(periodMs + 1); // what was cached is now a period old
        ASSERT_TRUE(feed(hub, "front", static_cast<unsigned>(stepMs / 1000 + 7)));
        const int64_t putAt = clock.wallUs();
        clock.stepWallMs(stepMs);
        auto first = hub.getImage(a);
        ASSERT_TRUE(first);
        EXPECT_EQ(first->getTimeStamp(), putAt);
        clock.advanceMs(periodMs / 2);
        auto second = hub.getImage(b); // a still holds its image
        ASSERT_TRUE(second);
        EXPECT_EQ(second.get(), first.get());
        ASSERT_TRUE(hub.releaseImage(a));
        ASSERT_TRUE(hub.releaseImage(b));
    }
}

} // namespace
