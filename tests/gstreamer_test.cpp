// The GStreamer camera with real elements: test sources, a clip written here,
// broken pipelines and a source that stalls.
#include "log_capture.h"

#include "gstreamer/camera_gstreamer.h"

#include <framehub/camera_builder.h>
#include <framehub/frame_hub.h>
#include <lumo/os.h>

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <vector>

using namespace Kelmo::FrameHub;

namespace {

// Real time plus an offset the test moves ahead, so that every fetch finds
// the rings stale and pulls a new frame without the test sleeping.
std::atomic<int64_t> clockOffset { 0 };
int64_t nowMicroseconds()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count() + clockOffset.load();
}
void skipAheadClock(lumo::os::timeval* tv)
{
    const int64_t us = nowMicroseconds();
    tv->tv_sec = us / 1000000;
    tv->tv_usec = us % 1000000;
}

class GStreamerTest : public ::testing::Test {
protected:
    // Empty when the elements every test needs and these exist, else the skip line.
    static std::string missing(std::vector<const char*> elements = {})
    {
        if (!gst_init_check(nullptr, nullptr, nullptr))
            return "GStreamer can't be initialised";
        elements.insert(elements.end(), { "videotestsrc", "videoconvert", "videoscale", "videorate", "appsink" });
        for (const char* name : elements) {
            GstElementFactory* factory = gst_element_factory_find(name);
            if (!factory)
                return std::string("element ") + name
                    + " missing (install gstreamer1.0-plugins-base and gstreamer1.0-plugins-good)";
            gst_object_unref(factory);
        }
        return std::string();
    }
    void SetUp() override
    {
        clockOffset = 0;
        lumo::os::setClock(skipAheadClock);
    }
    void TearDown() override { lumo::os::setClock({}); }
    static void skipAhead() { clockOffset += 250000; } // longer than any period here

    static CameraInfo info(const std::string& argument)
    {
        CameraInfo c;
        c.name = "gst";
        c.model = "GStreamer";
        c.backendArgument = argument;
        c.fieldOfView = FieldOfView(1.0f, 0.75f);
        c.resolutions = { { 160, 120 }, { 320, 240 } };
        c.colorSpaces = { COLORSPACE_YUV_422 };
        c.frameRates = { 5, 15, 30 };
        return c;
    }
};

// A loopback port nobody listens on: bound, read, closed.
int freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0
        && ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    ::close(fd);
    return port;
}

bool near(int value, int expected, int tolerance) { return std::abs(value - expected) <= tolerance; }

TEST_F(GStreamerTest, ServesThreeSubscribersInTheirFormatsAndRenegotiates)
{
    if (const std::string skip = missing(); !skip.empty())
        GTEST_SKIP() << skip;
    // RGB (200, 60, 40) is luma 102, chroma 98 and 191 in BT.601 studio range.
    struct Case {
        const char* name;
        const char* argument;
        bool solid;
    } cases[] = {
        { "solid colour", "videotestsrc is-live=true pattern=solid-color foreground-color=0xffc83c28", true },
        { "moving ball", "videotestsrc is-live=true pattern=ball", false },
    };
    struct Client {
        const char* stem;
        Resolution size;
        ColorSpace space;
        int rate;
    } clients[] = {
        { "rgb", { 320, 240 }, COLORSPACE_RGB_888, 30 },
        { "luma", { 160, 120 }, COLORSPACE_Y_8, 15 },
        { "yuv", { 320, 240 }, COLORSPACE_YUV_422, 5 },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FrameHub hub({ info(c.argument) });
        std::vector<std::string> names;
        for (const Client& client : clients)
            names.push_back(hub.subscribeCamera(client.stem, "gst", client.size, client.space, client.rate));
        std::vector<int64_t> lastStamp(3, -1);
        for (int round = 0; round < 3; ++round) {
            skipAhead();
            for (size_t i = 0; i < 3; ++i) {
                FrameHub::Buffer image = hub.getImage(names[i]);
                ASSERT_TRUE(image) << clients[i].stem;
                EXPECT_EQ(image->getResolution(), clients[i].size);
                EXPECT_LT(lastStamp[i], image->getTimeStamp());
                EXPECT_LE(image->getTimeStamp(), nowMicroseconds());
                // Wide enough for a pipeline that lags under a sanitizer;
                // a wrong unit or clock misses by far more.
                EXPECT_GT(image->getTimeStamp(), nowMicroseconds() - 10000000);
                lastStamp[i] = image->getTimeStamp();
                const uint8_t* p = image->getData();
                const size_t bytes = image->getSize();
                if (c.solid) {
                    for (size_t b = 0; b < bytes; ++b) {
                        const int rgb[] = { 200, 60, 40 }, yuyv[] = { 102, 98, 102, 191 };
                        const int expected = i == 0 ? rgb[b % 3] : i == 1 ? 102 : yuyv[b % 4];
                        ASSERT_PRED3(near, p[b], expected, 6) << clients[i].stem << " byte " << b;
                    }
                } else {
                    // A white ball on black, in every format: both ends of the range.
                    const auto range = std::minmax_element(p, p + bytes);
                    EXPECT_LE(*range.first, 20) << clients[i].stem;
                    EXPECT_GE(*range.second, 230) << clients[i].stem;
                }
                hub.releaseImage(names[i]);
            }
        }
        if (!c.solid)
            continue;
        // Renegotiation under the luma client: the large ones leave, one comes back.
        hub.unsubscribe(names[0]);
        hub.unsubscribe(names[2]);
        for (const Resolution expected : { Resolution(160, 120), Resolution(320, 240) }) {
            if (expected.width == 320)
                hub.subscribeCamera("big", "gst", expected, COLORSPACE_YUV_422, 30);
            skipAhead();
            EXPECT_EQ(hub.getCameraResolution("gst"), expected);
            FrameHub::Buffer raw = hub.getDirectRawImage(names[1]);
            ASSERT_TRUE(raw);
            EXPECT_EQ(raw->getResolution(), expected);
            EXPECT_PRED3(near, raw->getData()[raw->getSize() - 2], 102, 6) << "last luma of the frame";
            hub.releaseDirectRawImage(names[1]);
        }
    }
}

TEST_F(GStreamerTest, PlaysAClipToItsEndOrLoopsIt)
{
    if (const std::string skip = missing({ "jpegenc", "avimux", "filesink", "filesrc", "decodebin", "jpegdec" });
        !skip.empty())
        GTEST_SKIP() << skip;
    const std::string clip
        = (std::filesystem::temp_directory_path() / ("framehub-gst-" + std::to_string(::getpid()) + ".avi")).string();
    const int kFrames = 10;
    GstElement* writer = gst_parse_launch(("videotestsrc num-buffers=" + std::to_string(kFrames)
                                              + " pattern=ball ! video/x-raw,width=160,height=120,framerate=30/1 ! "
                                                "jpegenc ! avimux ! filesink location="
                                              + clip)
                                              .c_str(),
        nullptr);
    ASSERT_TRUE(writer);
    gst_element_set_state(writer, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(writer);
    GstMessage* done = gst_bus_timed_pop_filtered(
        bus, 10 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool written = done && GST_MESSAGE_TYPE(done) == GST_MESSAGE_EOS;
    if (done)
        gst_message_unref(done);
    gst_object_unref(bus);
    gst_element_set_state(writer, GST_STATE_NULL);
    gst_object_unref(writer);
    ASSERT_TRUE(written) << "the clip was not written";

    // videorate may repeat the last frame to fill the clip's duration.
    struct Case {
        bool loop;
        int fetches, expectedAtLeast, expectedAtMost;
    } cases[] = { { false, kFrames + 8, 1, kFrames + 1 }, { true, 3 * kFrames, 3 * kFrames, 3 * kFrames } };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.loop ? "loop" : "once");
        LogCapture log;
        FrameHub hub({ info(std::string(c.loop ? "loop=true " : "") + "filesrc location=" + clip + " ! decodebin") });
        const std::string name = hub.subscribeCamera("player", "gst", { 160, 120 }, COLORSPACE_RGB_888, 30);
        int frames = 0, afterEnd = 0;
        for (int i = 0; i < c.fetches; ++i) {
            skipAhead();
            if (hub.getImage(name)) {
                EXPECT_EQ(afterEnd, 0) << "a frame after the end, also past the core's reset";
                ++frames;
            } else {
                ++afterEnd;
            }
            hub.releaseImage(name);
        }
        EXPECT_GE(frames, c.expectedAtLeast);
        EXPECT_LE(frames, c.expectedAtMost);
        EXPECT_EQ(log.has(4, "gst: end of stream."), !c.loop);
    }
    std::filesystem::remove(clip);
}

TEST_F(GStreamerTest, BrokenSourcesLogGStreamersTextAndGiveNothing)
{
    if (const std::string skip = missing({ "filesrc", "decodebin", "rtspsrc" }); !skip.empty())
        GTEST_SKIP() << skip;
    const std::string unreachable
        = "rtspsrc name=ip location=rtsp://127.0.0.1:" + std::to_string(freePort()) + "/stream ! decodebin";
    struct Case {
        std::string argument;
        const char* expected;
    } cases[] = {
        { "videotestsrc ! ! fakesink", "gst: can't build the pipeline \"videotestsrc ! ! fakesink\": syntax error" },
        { "nosuchelement", "gst: can't build the pipeline \"nosuchelement\": no element \"nosuchelement\"" },
        { "filesrc name=clip location=/nonexistent/clip.avi ! decodebin", "gst: clip: Resource not found." },
        { unreachable, "gst: ip: Could not open resource for reading and writing." },
        { "", "gst: no source pipeline given." },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.argument);
        LogCapture log;
        FrameHub hub({ info(c.argument) });
        const std::string name = hub.subscribeCamera("client", "gst", { 160, 120 }, COLORSPACE_RGB_888, 30);
        for (int i = 0; i < 6; ++i) { // past the core's reset after five misses
            skipAhead();
            EXPECT_FALSE(hub.getImage(name));
            hub.releaseImage(name);
        }
        std::string errors;
        for (const lumo::log::Record& r : log.records())
            errors += r.level == 2 ? "\n" + r.message : "";
        EXPECT_NE(errors.find("\n" + std::string(c.expected)), std::string::npos) << "errors:" << errors;
    }
}

// Reaches the pipeline to close a valve inside the source.
struct GatedCamera : CameraGStreamer {
    GatedCamera()
        : CameraGStreamer("gated", "videotestsrc is-live=true ! valve name=gate")
    {
        setNativelySupportedResolutions({ { 160, 120 } });
        setNativelySupportedColorSpaces({ COLORSPACE_YUV_422 });
        setNativelySupportedFrameRates({ 30 });
    }
    void gate(bool closed)
    {
        GstElement* valve = gst_bin_get_by_name(GST_BIN(_pipeline), "gate");
        g_object_set(valve, "drop", closed ? TRUE : FALSE, nullptr);
        gst_object_unref(valve);
    }
};

TEST_F(GStreamerTest, AStalledSourceEndsTheFetchAtItsTimeout)
{
    if (const std::string skip = missing({ "valve" }); !skip.empty())
        GTEST_SKIP() << skip;
    LogCapture log;
    GatedCamera camera;
    const CameraPreferences preferences({ 160, 120 }, COLORSPACE_YUV_422, 30);
    // Each fetch returns, and its time is a hang guard, not a speed test: the
    // timeout itself is 100 ms.
    auto fetch = [&]() {
        skipAhead();
        const auto start = std::chrono::steady_clock::now();
        boost::shared_ptr<ImageBuffer> image = camera.getDirectRawImageBuffer(preferences);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        if (image)
            camera.releaseImageBuffer(image);
        return static_cast<bool>(image);
    };
    EXPECT_TRUE(fetch());
    camera.gate(true);
    // Frames already past the valve still arrive, a few at most.
    int inFlight = 0;
    while (inFlight < 4 && fetch())
        ++inFlight;
    EXPECT_LT(inFlight, 4);
    camera.gate(false);
    EXPECT_TRUE(fetch());
    EXPECT_TRUE(log.has(2, "gated: no frame within 100 ms."));
}

} // namespace
