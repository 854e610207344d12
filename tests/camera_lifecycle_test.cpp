#include "fake_camera.h"
#include "log_capture.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

using namespace Kelmo::FrameHub;

namespace {

typedef std::vector<std::string> Calls;

enum State { CLOSED, OPEN, STARTED };

// Started but closed counts as closed.
State stateOf(const Camera& c) { return !c.isOpen() ? CLOSED : c.isStarted() ? STARTED : OPEN; }

void bringTo(FakeCamera& c, State s)
{
    ASSERT_TRUE(s == CLOSED || c.open());
    ASSERT_TRUE(s != STARTED || c.start());
    c.takeCalls();
}

TEST(CameraLifecycle, TransitionsAndHookOrder)
{
    struct Row {
        State from;
        const char* event;
        const char* failing;
        bool result;
        State to;
        Calls calls;
    } rows[] = {
        { CLOSED, "open", "", true, OPEN, { "openDevice", "initDevice", "resetDevice" } },
        { CLOSED, "open", "openDevice", false, CLOSED, { "openDevice" } },
        { CLOSED, "open", "initDevice", false, CLOSED, { "openDevice", "initDevice", "closeDevice" } },
        { CLOSED, "open", "resetDevice", false, CLOSED, { "openDevice", "initDevice", "resetDevice", "closeDevice" } },
        { CLOSED, "start", "", true, STARTED, { "openDevice", "initDevice", "resetDevice", "startStreaming" } },
        { CLOSED, "start", "startStreaming", false, OPEN,
            { "openDevice", "initDevice", "resetDevice", "startStreaming" } },
        { CLOSED, "start", "openDevice", false, CLOSED, { "openDevice" } },
        { OPEN, "start", "", true, STARTED, { "startStreaming" } },
        { OPEN, "close", "", true, CLOSED, { "releaseDevice", "closeDevice" } },
        { OPEN, "close", "releaseDevice", false, CLOSED, { "releaseDevice", "closeDevice" } },
        { STARTED, "stop", "", true, OPEN, { "stopStreaming" } },
        { STARTED, "stop", "stopStreaming", false, OPEN, { "stopStreaming" } },
        { STARTED, "close", "", true, CLOSED, { "stopStreaming", "releaseDevice", "closeDevice" } },
        { STARTED, "close", "stopStreaming", false, CLOSED, { "stopStreaming", "releaseDevice", "closeDevice" } },
        // Already there: no hook at all.
        { OPEN, "open", "", true, OPEN, {} },
        { CLOSED, "close", "", true, CLOSED, {} },
        { STARTED, "start", "", true, STARTED, {} },
        { OPEN, "stop", "", true, OPEN, {} },
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.event) + " from " + std::to_string(row.from) + " failing " + row.failing);
        FakeCamera c;
        bringTo(c, row.from);
        c.fail(row.failing);
        const std::string e = row.event;
        const bool result = e == "open" ? c.open() : e == "close" ? c.close() : e == "start" ? c.start() : c.stop();
        EXPECT_EQ(result, row.result);
        EXPECT_EQ(stateOf(c), row.to);
        EXPECT_EQ(c.takeCalls(), row.calls);
    }
}

TEST(CameraLifecycle, LogLines)
{
    LogCapture log;
    FakeCamera c;
    c.start();
    c.stop();
    c.close();
    for (const char* line : { "Opening fake", "Starting fake", "Stoping fake", "Closing fake" })
        EXPECT_TRUE(log.has(5, line)) << line;
    c.fail("openDevice");
    EXPECT_FALSE(c.start());
    EXPECT_TRUE(log.has(2, "Error Starting fake"));
    for (const auto& r : log.records())
        EXPECT_EQ(r.category, "vision.framehub.camera");
}

TEST(CameraLifecycle, ConstructorAndRanges)
{
    FakeCamera c;
    EXPECT_FALSE(c.hasError());
    EXPECT_EQ(c.getResolution(), Resolution(160, 120));
    EXPECT_EQ(c.getColorSpace(), COLORSPACE_YUV_422);
    EXPECT_EQ(c.getFrameRate(), 5);
    EXPECT_EQ(c.getFrameRateRange(), std::make_pair(1, 30));
    EXPECT_EQ(c.getResolutionRange().first, Resolution(160, 120));
    EXPECT_EQ(c.getResolutionRange().second, Resolution(640, 480));
    auto d = c.buildDefaultPreferences();
    EXPECT_NE(d, c.buildDefaultPreferences()); // a new object each time
    EXPECT_EQ(d->getResolution(), Resolution(160, 120));
    EXPECT_EQ(d->getColorSpace(), COLORSPACE_YUV_422);
    EXPECT_EQ(d->getRefreshRate(), 5);
}

TEST(CameraLifecycle, ResetPaths)
{
    LogCapture log;
    {
        FakeCamera closed;
        EXPECT_TRUE(closed.reset());
        EXPECT_EQ(stateOf(closed), OPEN);
        EXPECT_TRUE(log.has(3, "Try to reset fake"));
        EXPECT_TRUE(log.has(4, "fake is now ready."));
    }
    {
        FakeCamera started;
        started.addPreferences(boost::make_shared<CameraPreferences>(Resolution(320, 240), COLORSPACE_Y_8, 15));
        started.start();
        started.takeCalls();
        EXPECT_TRUE(started.reset());
        EXPECT_EQ(stateOf(started), STARTED);
        EXPECT_EQ(started.takeCalls(),
            (Calls { "stopStreaming", "releaseDevice", "closeDevice", "openDevice", "initDevice", "resetDevice",
                "startStreaming" }));
    }
    {
        log.clear();
        FakeCamera broken;
        broken.addPreferences(boost::make_shared<CameraPreferences>(Resolution(320, 240), COLORSPACE_Y_8, 15));
        broken.start();
        broken.fail("closeDevice");
        broken.fail("setResolution 320x240");
        // The device forgot its size: _update has to drive it again, and fails.
        broken.setResolution(Resolution(160, 120));
        EXPECT_FALSE(broken.reset());
        EXPECT_TRUE(log.has(2, "fake: Can't close associated device."));
        EXPECT_TRUE(log.has(2, "fake: Can't adapt state to subscriber(s) requirement."));
        EXPECT_FALSE(log.has(4, "fake is now ready."));
        EXPECT_EQ(stateOf(broken), STARTED); // restarted as it was
    }
}

TEST(CameraLifecycle, UpdateChoosesLargestSizeAndFastestRate)
{
    LogCapture log;
    FakeCamera c;
    auto a = boost::make_shared<CameraPreferences>(Resolution(320, 240), COLORSPACE_Y_8, 5);
    auto b = boost::make_shared<CameraPreferences>(Resolution(640, 480), COLORSPACE_Y_8, 30);
    auto small = boost::make_shared<CameraPreferences>(Resolution(100, 100), COLORSPACE_Y_8, 15);
    c.addPreferences(small);
    EXPECT_EQ(c.getResolution(), Resolution(160, 120)); // below the smallest native size
    EXPECT_EQ(c.getFrameRate(), 15);
    c.addPreferences(a);
    c.addPreferences(b);
    EXPECT_EQ(c.getResolution(), Resolution(640, 480));
    EXPECT_EQ(c.getFrameRate(), 30);
    EXPECT_TRUE(log.has(5, "fake update resolution from 320x240 to 640x480"));
    EXPECT_TRUE(log.has(5, "fake update frame rate from 15 to 30"));

    // A failed resize skips the rate hook, not its log line.
    c.fail("setResolution 320x240");
    log.clear();
    c.takeCalls();
    EXPECT_FALSE(c.removePreferences(b));
    EXPECT_TRUE(log.has(5, "fake update frame rate from 30 to 15"));
    EXPECT_EQ(c.count("setFrameRate 15"), 0);

    // Equal pixel counts: the first in set order wins.
    FakeCamera d;
    d.addPreferences(boost::make_shared<CameraPreferences>(Resolution(640, 240), COLORSPACE_Y_8, 5));
    d.addPreferences(boost::make_shared<CameraPreferences>(Resolution(320, 480), COLORSPACE_Y_8, 5));
    EXPECT_EQ(d.getResolution(), d.preferencesInSetOrder().front()->getResolution());
}

} // namespace
