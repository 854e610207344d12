#include "fake_camera.h"
#include "log_capture.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Kelmo::FrameHub;

namespace {

class CameraRings : public ::testing::Test {
protected:
    ManualClock clock;
    FakeCamera camera;
    // 10 frames a second: a period of 100 ms.
    CameraPreferences y8 { Resolution(320, 240), COLORSPACE_Y_8, 10 };
};

// The first fetch grabs and converts once; a reader within the period shares
// that image with no further hook.
TEST_F(CameraRings, FirstFetchMakesOneBufferOfEachRingThenShares)
{
    auto first = camera.getImageBuffer(y8);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->lockCount, 1u);
    EXPECT_EQ(first->getData()[0], 101); // grab 1, converted
    EXPECT_EQ(first->getResolution(), Resolution(320, 240));
    ASSERT_EQ(camera.raw().size(), 1u);
    EXPECT_EQ((*camera.raw().begin())->lockCount, 0u);
    EXPECT_EQ(camera.converted().size(), 1u);
    EXPECT_TRUE(camera.isStarted());

    camera.takeCalls();
    clock.advanceMs(50);
    auto second = camera.getImageBuffer(y8);
    EXPECT_EQ(second, first);
    EXPECT_EQ(first->lockCount, 2u);
    EXPECT_TRUE(camera.takeCalls().empty());
    EXPECT_TRUE(camera.releaseImageBuffer(first));
    EXPECT_TRUE(camera.releaseImageBuffer(second));
    EXPECT_EQ(first->lockCount, 0u);
}

TEST_F(CameraRings, FreshnessBoundIsOnePeriodInclusive)
{
    struct Row {
        int64_t afterUs;
        bool same;
    } rows[] = { { 100000, true }, { 100999, true }, { 101000, false } };
    for (const Row& row : rows) {
        FakeCamera c;
        auto first = c.getImageBuffer(y8);
        c.releaseImageBuffer(first);
        clock.advanceUs(row.afterUs);
        auto next = c.getImageBuffer(y8);
        EXPECT_EQ(next->getData()[0] == first->getData()[0] && c.count("grab") == 1, row.same) << row.afterUs;
        c.releaseImageBuffer(next);
    }
}

TEST_F(CameraRings, GrowsWhileHeldAndReusesAfterRelease)
{
    auto first = camera.getImageBuffer(y8);
    clock.advanceMs(200);
    auto second = camera.getImageBuffer(y8); // stale, first still held
    EXPECT_NE(second, first);
    EXPECT_EQ(camera.converted().size(), 2u);
    EXPECT_EQ(second->getData()[0], 102);

    camera.releaseImageBuffer(first);
    camera.releaseImageBuffer(second);
    clock.advanceMs(200);
    auto third = camera.getImageBuffer(y8);
    EXPECT_EQ(camera.converted().size(), 2u); // no growth once released
    EXPECT_EQ(third, *camera.converted().begin()); // first free in set order
    camera.releaseImageBuffer(third);
}

TEST_F(CameraRings, OtherColorSpaceGrabsOnEveryMiss)
{
    CameraPreferences rgb(Resolution(320, 240), COLORSPACE_RGB_888, 10);
    camera.releaseImageBuffer(camera.getImageBuffer(y8));
    camera.releaseImageBuffer(camera.getImageBuffer(rgb));
    EXPECT_EQ(camera.count("grab"), 2); // the fresh YUV frame is not shared across colour spaces

    // A raw frame in the requested colour space is taken as it stands.
    CameraPreferences yuv(Resolution(320, 240), COLORSPACE_YUV_422, 10);
    camera.takeCalls();
    auto image = camera.getImageBuffer(yuv);
    EXPECT_EQ(camera.count("grab"), 0);
    EXPECT_EQ(camera.count("convert"), 1);
    camera.releaseImageBuffer(image);
}

TEST_F(CameraRings, DirectRawIgnoresFormatButNotRate)
{
    CameraPreferences odd(Resolution(1, 1), COLORSPACE_H_8, 30);
    auto raw = camera.getDirectRawImageBuffer(odd);
    ASSERT_TRUE(raw);
    EXPECT_EQ(raw->getColorSpace(), COLORSPACE_YUV_422);
    EXPECT_EQ(raw->getResolution(), camera.getResolution());
    auto again = camera.getDirectRawImageBuffer(odd);
    EXPECT_EQ(again, raw);
    EXPECT_EQ(raw->lockCount, 2u);
    camera.releaseImageBuffer(raw);
    camera.releaseImageBuffer(again);
}

TEST_F(CameraRings, FifthMissInARowResetsTheCamera)
{
    LogCapture log;
    camera.fail("grab");
    for (int call = 1; call <= 6; ++call) {
        camera.takeCalls();
        EXPECT_FALSE(camera._getDirectRawImageBuffer(y8));
        const bool reset = log.has(2, "Can't get image from fake. Restart the camera.");
        EXPECT_EQ(reset, call >= 5) << call;
        if (call == 5) {
            EXPECT_EQ(camera.count("closeDevice"), 1);
            EXPECT_EQ(camera.count("grab"), 1); // and still tries in the same call
        }
        if (call == 6) {
            EXPECT_EQ(camera.count("closeDevice"), 0); // counting from 1 again
        }
    }
    EXPECT_TRUE(camera.unlocked());
}

TEST_F(CameraRings, FailuresLeaveNoCountAndAStoppedCameraRestarts)
{
    LogCapture log;
    camera.fail("startStreaming");
    EXPECT_FALSE(camera.getImageBuffer(y8));
    EXPECT_TRUE(log.has(2, "Can't start fake to get a new image."));
    camera.heal();
    camera.fail("convert");
    EXPECT_FALSE(camera.getImageBuffer(y8));
    EXPECT_TRUE(camera.unlocked());
    camera.heal();
    camera.stop();
    auto image = camera.getImageBuffer(y8);
    EXPECT_TRUE(image);
    EXPECT_TRUE(camera.isStarted());
    camera.releaseImageBuffer(image);
}

TEST_F(CameraRings, FetchAfterCloseServesTheRingUntilStale)
{
    camera.releaseImageBuffer(camera.getImageBuffer(y8));
    camera.close();
    camera.takeCalls();
    auto cached = camera.getImageBuffer(y8);
    EXPECT_TRUE(cached);
    EXPECT_FALSE(camera.isOpen());
    camera.releaseImageBuffer(cached);
    clock.advanceMs(150);
    camera.releaseImageBuffer(camera.getImageBuffer(y8));
    EXPECT_TRUE(camera.isStarted());
}

TEST_F(CameraRings, ReleaseAndShrinkAndClean)
{
    FakeCamera other;
    auto foreign = other.getImageBuffer(y8);
    EXPECT_FALSE(camera.releaseImageBuffer(foreign));
    EXPECT_FALSE(camera.releaseImageBuffer(boost::shared_ptr<ImageBuffer>()));

    LogCapture log;
    EXPECT_TRUE(camera._cleanImageBuffers()); // empty rings
    auto held = camera.getImageBuffer(y8);
    EXPECT_TRUE(camera._decreaseBufferNumber(y8)); // pinned: nothing goes
    EXPECT_EQ(camera.converted().size(), 1u);
    EXPECT_FALSE(camera._cleanImageBuffers());
    EXPECT_TRUE(log.has(3, "Internal error, an image buffer lock has not been released."));
    EXPECT_FALSE(log.has(3, "Internal error, a direct raw image buffer lock has not been released."));
    EXPECT_TRUE(camera.raw().empty());
    EXPECT_TRUE(camera.converted().empty());
    EXPECT_FALSE(camera.releaseImageBuffer(held)); // no longer a member
    other.releaseImageBuffer(foreign);
}

// Readers fetch and release on one camera while another thread changes the
// requests; every count given out comes back.
TEST(CameraConcurrency, NoLostLockCount)
{
    FakeCamera camera;
    auto keep = boost::make_shared<CameraPreferences>(Resolution(320, 240), COLORSPACE_Y_8, 30);
    camera.addPreferences(keep);
    std::atomic<bool> stop { false };
    std::atomic<int> fetched { 0 };
    std::vector<std::thread> readers;
    const ColorSpace spaces[] = { COLORSPACE_Y_8, COLORSPACE_RGB_888, COLORSPACE_Y_8, COLORSPACE_YUV_422 };
    for (ColorSpace space : spaces)
        readers.emplace_back([&, space] {
            CameraPreferences p(Resolution(320, 240), space, 30);
            for (int i = 0; i < 400; ++i) {
                auto image = camera.getImageBuffer(p);
                if (image) {
                    ++fetched;
                    EXPECT_EQ(image->getColorSpace(), space);
                    EXPECT_TRUE(camera.releaseImageBuffer(image));
                }
                auto raw = camera.getDirectRawImageBuffer(p);
                if (raw)
                    camera.releaseImageBuffer(raw);
            }
        });
    std::thread changer([&] {
        for (int i = 0; !stop; ++i) {
            auto extra = boost::make_shared<CameraPreferences>(
                Resolution(i % 2 ? 640 : 160, i % 2 ? 480 : 120), COLORSPACE_Y_8, 5 + i % 20);
            camera.addPreferences(extra);
            camera.updateFrameRatePreferences(extra, 1 + i % 30);
            camera.removePreferences(extra);
        }
    });
    for (auto& t : readers)
        t.join();
    stop = true;
    changer.join();
    EXPECT_GT(fetched.load(), 0);
    EXPECT_TRUE(camera.unlocked());
}

} // namespace
