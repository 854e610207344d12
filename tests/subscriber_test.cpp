#include "frontend/subscriber.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

using namespace Kelmo::FrameHub;

namespace {

boost::shared_ptr<CameraPreferences> prefs(int rate)
{
    return boost::make_shared<CameraPreferences>(Resolution(320, 240), COLORSPACE_Y_8, rate);
}

TEST(SubscriberTest, FreshRecordAndLookupsThatCreateNothing)
{
    Subscriber s("top_0");
    EXPECT_EQ(s.getFrameRate(), 1);
    EXPECT_FALSE(s.isMultiStream() || s.isProcessing());
    EXPECT_FALSE(s.getCameraPreferences("any"));
    EXPECT_FALSE(s.getImageBuffer("any"));
    EXPECT_TRUE(s.getCameraPreferencesMap().empty());
    EXPECT_TRUE(s.getImageBufferMap().empty());

    auto buffer = boost::make_shared<ImageBuffer>("cam", Resolution(2, 2), COLORSPACE_Y_8, true);
    s.setImageBuffer("cam", buffer);
    EXPECT_TRUE(s.isProcessing());
    s.getImageBufferMap().clear();
    EXPECT_FALSE(s.isProcessing());
}

TEST(SubscriberTest, MultiStreamIsSetByTwoCamerasAndNeverCleared)
{
    struct Step {
        std::vector<std::string> cameras;
        bool multi;
    } steps[] = { { { "a" }, false }, { { "a", "b" }, true }, { { "a" }, true }, { {}, true } };
    Subscriber s("s_0");
    for (const Step& step : steps) {
        EXPECT_TRUE(s.setActiveCameras(step.cameras));
        EXPECT_EQ(s.getActiveCameraList(), step.cameras);
        EXPECT_EQ(s.isMultiStream(), step.multi) << step.cameras.size();
    }
}

TEST(SubscriberTest, FrameRateReachesEveryPreferenceAndRefusesBelowOne)
{
    Subscriber s("s_0");
    EXPECT_TRUE(s.setFrameRate(12)); // no preferences yet
    EXPECT_EQ(s.getFrameRate(), 12);

    auto a = prefs(5), b = prefs(7);
    s.setCameraPreferences("a", a);
    s.setCameraPreferences("b", b);
    for (int bad : { 0, -5 }) {
        EXPECT_FALSE(s.setFrameRate(bad));
        EXPECT_EQ(s.getFrameRate(), 12);
        EXPECT_EQ(a->getRefreshRate(), 5);
        EXPECT_EQ(b->getRefreshRate(), 7);
    }
    EXPECT_TRUE(s.setFrameRate(30));
    EXPECT_EQ(a->getRefreshRate(), 30);
    EXPECT_EQ(b->getRefreshRate(), 30);

    // Replacing an entry swaps the pointer.
    auto c = prefs(1);
    s.setCameraPreferences("a", c);
    EXPECT_EQ(s.getCameraPreferences("a"), c);
    EXPECT_EQ(s.getCameraPreferencesMap().size(), 2u);
}

} // namespace
