// The V4L2 back-end against devices it did not write: a PipeWire node seen
// through the pw-v4l2 shim (started by v4l2_pipewire_test.sh), and a real
// camera when one is plugged in.
#include <framehub/frame_hub.h>
#include <framehub/v4l2.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <sys/types.h>
#include <thread>

using namespace Kelmo::FrameHub;
typedef std::chrono::steady_clock Clock;

namespace {

struct Client {
    Resolution size;
    ColorSpace space;
    int rate;
};

const Client kClients[] = { { { 640, 480 }, COLORSPACE_YUV_422, 30 }, { { 320, 240 }, COLORSPACE_RGB_888, 15 },
    { { 160, 120 }, COLORSPACE_Y_8, 5 } };

std::vector<std::string> subscribeAll(FrameHub& hub, const std::string& camera)
{
    std::vector<std::string> names;
    for (const Client& c : kClients)
        names.push_back(hub.subscribeCamera("client", camera, c.size, c.space, c.rate));
    return names;
}

// The source prints "ready" each time its node awaits a new consumer: it
// serves one, and reconnects after the hub's trial start and close.
bool awaitSourceReady(int count)
{
    for (int i = 0; i < 250; ++i) { // 5 s
        std::ifstream log(std::getenv("FRAMEHUB_PW_SOURCE_LOG"));
        int ready = 0;
        for (std::string line; std::getline(log, line);)
            ready += line == "ready";
        if (ready >= count)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

TEST(PipeWire, ThreeSubscribersThenTheSourceDies)
{
    if (!std::getenv("FRAMEHUB_PW_SOURCE_PID") || !std::getenv("FRAMEHUB_PW_SOURCE_LOG"))
        GTEST_SKIP() << "run by v4l2_pipewire_test.sh, which starts the PipeWire source";
    ASSERT_TRUE(awaitSourceReady(1));
    CameraInfo info = describeV4L2Device("/dev/video0", "webcam");
    ASSERT_EQ(info.resolutions.count(Resolution(640, 480)), 1u);
    ASSERT_EQ(info.frameRates.count(30), 1u);
    // One size only, so the stream is never restarted for a new format: the
    // source serves one consumer per connection.
    info.resolutions = { { 640, 480 } };

    FrameHub hub({ info });
    ASSERT_TRUE(awaitSourceReady(2));
    const std::vector<std::string> names = subscribeAll(hub, "webcam");
    // Rounds until the fastest client has seen a few frames come and go;
    // within a frame period the hub serves the image it has. A frame late
    // on a busy machine costs one null image, no more.
    std::vector<std::set<int64_t>> stamps(names.size());
    int late = 0;
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(5);
    while (Clock::now() < deadline && stamps[0].size() < 4) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        for (size_t i = 0; i < names.size(); ++i) {
            SCOPED_TRACE(names[i]);
            boost::shared_ptr<ImageBuffer> image = hub.getImage(names[i]);
            if (!image) {
                ASSERT_LT(++late, 3);
                continue;
            }
            ASSERT_EQ(image->getResolution(), kClients[i].size);
            ASSERT_EQ(image->getColorSpace(), kClients[i].space);
            const uint8_t* p = image->getData() + image->getSize() / 2;
            if (kClients[i].space == COLORSPACE_YUV_422) {
                EXPECT_EQ(std::vector<int>(p, p + 4), std::vector<int>({ 81, 90, 81, 240 }));
            } else if (kClients[i].space == COLORSPACE_RGB_888) {
                EXPECT_GT(p[0], 200);
                EXPECT_LT(p[1], 40);
                EXPECT_LT(p[2], 40);
            } else {
                EXPECT_EQ(p[0], 81);
            }
            EXPECT_TRUE(stamps[i].empty() || image->getTimeStamp() >= *stamps[i].rbegin());
            stamps[i].insert(image->getTimeStamp());
            hub.releaseImage(names[i]);
        }
    }
    EXPECT_EQ(stamps[0].size(), 4u);

    // The source dies: errors and null images, never a hang.
    ASSERT_EQ(kill(static_cast<pid_t>(std::atoi(std::getenv("FRAMEHUB_PW_SOURCE_PID"))), SIGKILL), 0);
    for (size_t i = 0; i < names.size(); ++i) {
        SCOPED_TRACE(names[i]);
        bool gotNull = false;
        const Clock::time_point deadline = Clock::now() + std::chrono::seconds(10);
        while (Clock::now() < deadline && !gotNull) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            gotNull = !hub.getImage(names[i]);
            hub.releaseImage(names[i]);
        }
        EXPECT_TRUE(gotNull);
    }
    for (int attempt = 0; attempt < 6; ++attempt) {
        EXPECT_FALSE(hub.getImage(names[0]));
        hub.releaseImage(names[0]);
    }
}

TEST(RealDevice, SharedByThreeSubscribers)
{
    const std::vector<V4L2Device> devices = listV4L2Devices();
    if (devices.empty())
        GTEST_SKIP() << "no V4L2 capture device under /dev";
    CameraInfo info = describeV4L2Device(devices[0].path, "webcam");
    if (info.resolutions.empty())
        GTEST_SKIP() << devices[0].path << " (" << devices[0].card << ") offers no YUYV or MJPEG frames";
    if (info.resolutions.rbegin()->width < 640 || info.resolutions.rbegin()->height < 480)
        GTEST_SKIP() << devices[0].path << " is smaller than 640x480";
    FrameHub hub({ info });
    const std::vector<std::string> names = subscribeAll(hub, "webcam");
    for (int round = 0; round < 5; ++round)
        for (size_t i = 0; i < names.size(); ++i) {
            boost::shared_ptr<ImageBuffer> image = hub.getImage(names[i]);
            if (!image && round == 0 && i == 0)
                GTEST_SKIP() << devices[0].path << " gives no frame (busy with another program?)";
            ASSERT_TRUE(image) << names[i];
            EXPECT_EQ(image->getResolution(), kClients[i].size);
            EXPECT_GT(image->getTimeStamp(), 0);
            hub.releaseImage(names[i]);
        }
}

} // namespace
