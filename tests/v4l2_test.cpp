// The V4L2 back-end against a fake device: the streaming protocol, the
// newest-frame rule, time stamps, MJPEG, controls, and every fault.
#include "fake_v4l2_device.h"
#include "log_capture.h"

#include "camera/camera_registry.h"
#include "v4l2/camera_v4l2.h"
#include "v4l2/v4l2_enumerate.h"

#include <framehub/frame_hub.h>
#include <lumo/os.h>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <functional>
#include <map>

using namespace Kelmo::FrameHub;

namespace {

typedef boost::shared_ptr<FakeV4L2Device> Device;

// A camera on a fake device, built as the builder would, and a settable epoch clock.
struct Rig {
    Device device = boost::make_shared<FakeV4L2Device>();
    boost::shared_ptr<CameraV4L2> camera;
    int64_t epoch = 1700000000000000;

    Rig()
    {
        lumo::os::setClock([this](lumo::os::timeval* tv) {
            tv->tv_sec = epoch / 1000000;
            tv->tv_usec = epoch % 1000000;
        });
    }
    ~Rig()
    {
        camera.reset();
        lumo::os::setClock(nullptr);
    }

    void build(std::set<Resolution> sizes = { { 320, 240 }, { 640, 480 } })
    {
        camera = boost::make_shared<CameraV4L2>("cam", "/dev/video0", device);
        camera->setFieldOfView(FieldOfView(1.0f, 0.75f));
        camera->setNativelySupportedResolutions(sizes);
        camera->setNativelySupportedColorSpaces({ COLORSPACE_YUV_422 });
        camera->setNativelySupportedFrameRates({ 15, 30 });
    }

    // A new raw frame: the clock moves past the period first, so nothing is reused.
    boost::shared_ptr<ImageBuffer> grab()
    {
        epoch += 100000;
        boost::shared_ptr<ImageBuffer> b
            = camera->getDirectRawImageBuffer(CameraPreferences(Resolution(0, 0), COLORSPACE_YUV_422, 30));
        if (b)
            camera->releaseImageBuffer(b);
        return b;
    }
};

// A 4:2:2 JPEG whose luma is a horizontal ramp and whose chroma is neutral.
std::vector<uint8_t> rampJpeg(int width, int height)
{
    std::vector<uint8_t> y(width * height), uv(width / 2 * height, 128);
    for (int row = 0; row < height; ++row)
        for (int x = 0; x < width; ++x)
            y[row * width + x] = static_cast<uint8_t>(x * 255 / (width - 1));
    const unsigned char* planes[3] = { y.data(), uv.data(), uv.data() };
    tjhandle handle = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    tjCompressFromYUVPlanes(handle, planes, width, nullptr, height, TJSAMP_422, &out, &size, 95, 0);
    std::vector<uint8_t> jpeg(out, out + size);
    tjFree(out);
    tjDestroy(handle);
    return jpeg;
}

TEST(V4L2Camera, StreamsByMappedBuffersAndGivesThemBack)
{
    for (uint32_t padding : { 0u, 16u }) {
        SCOPED_TRACE(padding);
        Rig rig;
        rig.device->padding = padding;
        rig.build();
        ASSERT_TRUE(rig.camera->start());
        const std::vector<std::string>& calls = rig.device->calls;
        auto first
            = [&](const std::string& call) { return std::find(calls.begin(), calls.end(), call) - calls.begin(); };
        EXPECT_LT(first("S_FMT"), first("REQBUFS"));
        EXPECT_LT(first("REQBUFS"), first("STREAMON"));
        EXPECT_GE(rig.device->requested, 4u);
        EXPECT_EQ(rig.device->mapped, static_cast<int>(rig.device->buffers()));
        EXPECT_EQ(rig.device->queued(), rig.device->buffers());

        // Three frames wait: the newest is copied, the others go straight back.
        rig.device->deliver(3);
        boost::shared_ptr<ImageBuffer> image = rig.grab();
        ASSERT_TRUE(image);
        EXPECT_EQ(image->getData()[0], 3);
        EXPECT_EQ(image->getData()[1], 4);
        // Row 1 starts after the padding of row 0 in the device buffer.
        EXPECT_EQ(image->getData()[640], static_cast<uint8_t>(3 + 640 + padding));
        EXPECT_EQ(image->getResolution(), Resolution(320, 240));
        EXPECT_EQ(image->getColorSpace(), COLORSPACE_YUV_422);
        EXPECT_EQ(rig.device->queued(), rig.device->buffers());

        // Destroyed mid-stream: everything unmapped and closed.
        rig.camera.reset();
        EXPECT_EQ(rig.device->mapped, 0);
        EXPECT_EQ(rig.device->openDescriptors, 0);
    }
}

TEST(V4L2Camera, DriverTimeStampsBecomeEpochMicroseconds)
{
    struct Case {
        const char* name;
        uint32_t flags;
        int64_t age; // of the driver's stamp at dequeue
        int64_t expectedAge; // of the image's stamp against the epoch clock
    } cases[] = {
        { "monotonic", V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC, 5000, 5000 },
        { "no stamp kind", V4L2_BUF_FLAG_TIMESTAMP_UNKNOWN, 5000, 0 },
        { "from the future", V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC, -5000, 0 },
        { "implausibly old", V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC, 5000000, 0 },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Rig rig;
        rig.device->stampFlags = c.flags;
        rig.device->frameAge = c.age;
        rig.build();
        boost::shared_ptr<ImageBuffer> image = rig.grab();
        ASSERT_TRUE(image);
        EXPECT_EQ(image->getTimeStamp(), rig.epoch - c.expectedAge);
    }
}

// Faults at open, or once a first frame came: the logged error, and whether
// the device is closed at once so that a replugged one gets its node back.
TEST(V4L2Camera, DeviceFaults)
{
    typedef FakeV4L2Device D;
    struct Case {
        const char* name;
        bool atOpen;
        std::function<void(D&)> inject;
        const char* error; // null: the frame still comes, and nothing is logged
        bool closes;
    } cases[] = {
        { "absent", true, [](D& d) { d.present = false; }, "cam: can't open /dev/video0: No such file or directory.",
            true },
        { "not a capture device", true, [](D& d) { d.caps = V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_STREAMING; },
            "cam: /dev/video0 is not a video capture device.", true },
        { "no streaming", true, [](D& d) { d.caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_READWRITE; },
            "cam: /dev/video0 can't stream by memory mapping.", true },
        { "no YUYV", true,
            [](D& d) {
                d.formats = { { V4L2_PIX_FMT_RGB24, { { 640, 480 } } } };
            },
            "cam: /dev/video0 offers no YUYV (nor MJPEG) format.", true },
        { "busy", true, [](D& d) { d.fail(VIDIOC_S_FMT, EBUSY, 10); },
            "cam: /dev/video0 is busy (VIDIOC_S_FMT): another process is using it.", true },
        { "EINTR on DQBUF", false, [](D& d) { d.fail(VIDIOC_DQBUF, EINTR, 3); }, nullptr, false },
        { "EINTR on poll", false, [](D& d) { d.fail(0, EINTR, 2); }, nullptr, false },
        { "EINTR on QBUF", false, [](D& d) { d.fail(VIDIOC_QBUF, EINTR, 2); }, nullptr, false },
        { "EAGAIN after poll", false, [](D& d) { d.spuriousWakeups = 3; }, nullptr, false },
        { "frames flagged corrupt", false, [](D& d) { d.corruptFrames = 2; }, nullptr, false },
        { "lost at DQBUF", false, [](D& d) { d.fail(VIDIOC_DQBUF, ENODEV); },
            "cam: /dev/video0 disappeared (VIDIOC_DQBUF: No such device).", true },
        { "lost at QBUF", false, [](D& d) { d.fail(VIDIOC_QBUF, ENODEV); },
            "cam: /dev/video0 disappeared (VIDIOC_QBUF: No such device).", true },
        { "lost at poll", false, [](D& d) { d.fail(0, ENODEV); },
            "cam: /dev/video0 disappeared (poll: No such device).", true },
        { "no frame comes", false, [](D& d) { d.pollTimeouts = 1000; }, "cam: no frame from /dev/video0 within 200 ms.",
            false },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Rig rig;
        rig.build();
        if (!c.atOpen) {
            ASSERT_TRUE(rig.grab());
        }
        LogCapture log(2);
        c.inject(*rig.device);
        const bool ok = c.atOpen ? rig.camera->open() : static_cast<bool>(rig.grab());
        if (c.atOpen) {
            EXPECT_FALSE(ok);
        }
        if (c.error) {
            EXPECT_TRUE(log.has(2, c.error));
        } else {
            EXPECT_TRUE(ok);
            EXPECT_TRUE(log.records().empty()) << log.messages()[0];
        }
        if (c.closes) {
            EXPECT_EQ(rig.device->openDescriptors, 0);
            EXPECT_EQ(rig.device->mapped, 0);
        }
        if (c.atOpen) {
            EXPECT_FALSE(rig.grab());
        }
    }
}

TEST(V4L2Camera, BusyWhenStreamingStarts)
{
    Rig rig;
    rig.build();
    ASSERT_TRUE(rig.camera->open());
    rig.device->fail(VIDIOC_REQBUFS, EBUSY);
    LogCapture log(2);
    EXPECT_FALSE(rig.camera->start());
    EXPECT_TRUE(log.has(2, "cam: /dev/video0 is busy (VIDIOC_REQBUFS): another process is using it."));
    EXPECT_EQ(rig.device->mapped, 0);
}

TEST(V4L2Camera, UnpluggedThenReplugged)
{
    Rig rig;
    rig.build();
    ASSERT_TRUE(rig.grab());
    rig.device->unplugged = true;
    LogCapture log(2);
    // Misses until the fifth resets the camera, which can't reopen it yet.
    for (int i = 0; i < 6; ++i)
        EXPECT_FALSE(rig.grab());
    EXPECT_TRUE(log.has(2, "cam: /dev/video0 disappeared (VIDIOC_DQBUF: No such device)."));
    EXPECT_TRUE(log.has(2, "Can't get image from cam. Restart the camera."));
    EXPECT_TRUE(log.has(2, "cam: can't open /dev/video0: No such file or directory."));
    EXPECT_EQ(rig.device->openDescriptors, 0);

    rig.device->unplugged = false;
    boost::shared_ptr<ImageBuffer> image;
    for (int i = 0; i < 6 && !image; ++i)
        image = rig.grab();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->getResolution(), Resolution(320, 240));
}

TEST(V4L2Camera, DriverAdjustedSizes)
{
    struct Case {
        const char* name;
        Resolution chosen;
        bool accepted;
        Resolution result;
        int level;
        const char* message;
    } cases[] = {
        { "to another native size", { 320, 240 }, true, { 320, 240 }, 3,
            "cam: the driver of /dev/video0 chose 320x240 instead of 640x480." },
        { "to a foreign size", { 600, 400 }, false, { 320, 240 }, 2,
            "cam: the driver of /dev/video0 chose 600x400 for 640x480, which is not a native resolution." },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Rig rig;
        rig.device->adjust[Resolution(640, 480)] = c.chosen;
        rig.build();
        ASSERT_TRUE(rig.camera->start());
        LogCapture log(3);
        EXPECT_EQ(rig.camera->setResolution(Resolution(640, 480)), c.accepted);
        EXPECT_TRUE(log.has(c.level, c.message));
        EXPECT_EQ(rig.camera->getResolution(), c.result);
        boost::shared_ptr<ImageBuffer> image = rig.grab();
        ASSERT_TRUE(image);
        EXPECT_EQ(image->getResolution(), c.result);
    }
}

TEST(V4L2Camera, MjpegOnlySizesAreDecodedAndBadFramesDropped)
{
    Rig rig;
    rig.device->formats
        = { { V4L2_PIX_FMT_YUYV, { { 320, 240 } } }, { V4L2_PIX_FMT_MJPEG, { { 320, 240 }, { 640, 480 } } } };
    rig.device->jpeg = rampJpeg(640, 480);
    const CameraInfo info = describeV4L2Device(*rig.device, "/dev/video0", "cam");
    EXPECT_EQ(info.resolutions, (std::set<Resolution> { { 320, 240 }, { 640, 480 } }));
    rig.build(info.resolutions);
    ASSERT_TRUE(rig.camera->open());
    ASSERT_TRUE(rig.camera->setResolution(Resolution(640, 480)));
    EXPECT_EQ(rig.device->pixelFormat, static_cast<uint32_t>(V4L2_PIX_FMT_MJPEG));

    for (size_t cut : { size_t(0), size_t(600) }) {
        SCOPED_TRACE(cut);
        rig.device->jpegCut = cut;
        LogCapture log(3);
        boost::shared_ptr<ImageBuffer> image = rig.grab();
        ASSERT_TRUE(image);
        // A cut frame is dropped with a warning and the next one taken.
        EXPECT_EQ(log.records().size(), cut ? 1u : 0u);
        const uint8_t* p = image->getData();
        for (int x : { 0, 100, 320, 639 }) {
            const double studio = 16 + (x * 255 / 639) * 219.0 / 255.0;
            EXPECT_NEAR(p[240 * 1280 + x * 2], studio, 3) << x;
            EXPECT_NEAR(p[240 * 1280 + (x & ~1) * 2 + 1], 128, 2) << x;
        }
    }
}

TEST(V4L2Camera, ParametersDriveTheControls)
{
    Rig rig;
    rig.device->addControl(V4L2_CID_BRIGHTNESS, 0, 255, 128);
    rig.device->addControl(V4L2_CID_EXPOSURE_AUTO, 0, 3, V4L2_EXPOSURE_APERTURE_PRIORITY, V4L2_CTRL_TYPE_MENU,
        { V4L2_EXPOSURE_MANUAL, V4L2_EXPOSURE_APERTURE_PRIORITY });
    rig.device->addControl(V4L2_CID_HFLIP, 0, 1, 0, V4L2_CTRL_TYPE_BOOLEAN);
    rig.build();
    rig.camera->setDefaultFlip(true, false);
    rig.device->controls[V4L2_CID_BRIGHTNESS].value = 7;
    ASSERT_TRUE(rig.camera->open());
    // Opening resets: driver defaults, and the flip at the mounted orientation.
    EXPECT_EQ(rig.device->controls[V4L2_CID_BRIGHTNESS].value, 128);
    EXPECT_EQ(rig.device->controls[V4L2_CID_HFLIP].value, 1);
    EXPECT_EQ(rig.camera->getParameter(PARAMETER_HORIZONTAL_FLIP), 0);

    struct Case {
        Parameter parameter;
        int value;
        bool accepted;
        uint32_t control;
        int deviceValue;
    } cases[] = {
        { PARAMETER_BRIGHTNESS, 200, true, V4L2_CID_BRIGHTNESS, 200 },
        { PARAMETER_BRIGHTNESS, 256, false, V4L2_CID_BRIGHTNESS, 200 },
        { PARAMETER_BRIGHTNESS, -1, false, V4L2_CID_BRIGHTNESS, 200 },
        { PARAMETER_AUTO_EXPOSITION, 0, true, V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_MANUAL },
        { PARAMETER_AUTO_EXPOSITION, 1, true, V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_APERTURE_PRIORITY },
        { PARAMETER_AUTO_EXPOSITION, 3, false, V4L2_CID_EXPOSURE_AUTO, V4L2_EXPOSURE_APERTURE_PRIORITY },
        { PARAMETER_HORIZONTAL_FLIP, 1, true, V4L2_CID_HFLIP, 0 },
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(getParameterName(c.parameter) + " " + std::to_string(c.value));
        EXPECT_EQ(rig.camera->setParameter(c.parameter, c.value), c.accepted);
        EXPECT_EQ(rig.device->controls[c.control].value, c.deviceValue);
        if (c.accepted) {
            EXPECT_EQ(rig.camera->getParameter(c.parameter), c.value);
        }
    }
    const ParameterInfo brightness = rig.camera->getParameterInfo(PARAMETER_BRIGHTNESS);
    EXPECT_EQ(std::vector<int>({ brightness.minimum, brightness.maximum, brightness.step, brightness.defaultValue }),
        std::vector<int>({ 0, 255, 1, 128 }));
    const ParameterInfo automatic = rig.camera->getParameterInfo(PARAMETER_AUTO_EXPOSITION);
    EXPECT_EQ(automatic.maximum, 1);
    EXPECT_EQ(automatic.defaultValue, 1);

    LogCapture log(2);
    EXPECT_EQ(rig.camera->getParameter(PARAMETER_CONTRAST), INVALID_PARAMETER_VALUE);
    EXPECT_FALSE(rig.camera->setParameter(PARAMETER_GAIN, 1));
    EXPECT_TRUE(log.has(2, "cam: parameter PARAMETER_CONTRAST unsupported."));
    EXPECT_EQ(rig.camera->getParameterInfo(PARAMETER_SHARPNESS).step, 0);
}

TEST(V4L2Describe, SizesRatesAndRefusals)
{
    Rig rig;
    rig.device->formats[V4L2_PIX_FMT_MJPEG] = { { 640, 480 }, { 1280, 720 } };
    rig.device->rates = { 5, 30, 15 };
    CameraInfo info = describeV4L2Device(*rig.device, "/dev/video3", "front");
    EXPECT_EQ(info.name, "front");
    EXPECT_EQ(info.model, "V4L2");
    EXPECT_EQ(info.backendArgument, "/dev/video3");
    EXPECT_EQ(info.resolutions, (std::set<Resolution> { { 320, 240 }, { 640, 480 }, { 1280, 720 } }));
    EXPECT_EQ(info.frameRates, (std::set<int> { 5, 15, 30 }));
    EXPECT_EQ(info.colorSpaces, (std::set<ColorSpace> { COLORSPACE_YUV_422 }));
    EXPECT_GT(info.fieldOfView.horizontal, info.fieldOfView.vertical);
    EXPECT_EQ(rig.device->openDescriptors, 0);

    std::vector<V4L2Device> listed = listV4L2Devices(*rig.device, { "/dev/video0" });
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].card, "Fake camera");

    rig.device->caps = V4L2_CAP_VIDEO_OUTPUT;
    LogCapture log(2);
    EXPECT_TRUE(describeV4L2Device(*rig.device, "/dev/video3", "front").resolutions.empty());
    EXPECT_TRUE(log.has(2, "/dev/video3 is not a video capture device."));
    EXPECT_TRUE(listV4L2Devices(*rig.device, { "/dev/video0" }).empty());
}

// The hub's view: cameras of the "V4L2Fake" model run on the fake device
// registered under their backend argument.
std::map<std::string, Device>& fakeDevices()
{
    static std::map<std::string, Device> devices;
    return devices;
}

struct CameraOnFake : CameraV4L2 {
    CameraOnFake(const std::string& name, const std::string& argument)
        : CameraV4L2(name, "/dev/video0", fakeDevices()[argument])
    {
    }
};
FRAMEHUB_REGISTER_CAMERA_MODEL("V4L2Fake", CameraOnFake)

TEST(V4L2Hub, ThreeSubscribersShareOneDevice)
{
    Rig rig;
    fakeDevices()["shared"] = rig.device;
    CameraInfo info = describeV4L2Device(*rig.device, "/dev/video0", "webcam");
    info.model = "V4L2Fake";
    info.backendArgument = "shared";
    {
        FrameHub hub({ info });
        struct Client {
            Resolution size;
            ColorSpace space;
            int rate;
        } clients[] = { { { 640, 480 }, COLORSPACE_YUV_422, 30 }, { { 320, 240 }, COLORSPACE_RGB_888, 15 },
            { { 160, 120 }, COLORSPACE_Y_8, 5 } };
        std::vector<std::string> names;
        for (const Client& c : clients)
            names.push_back(hub.subscribeCamera("client", "webcam", c.size, c.space, c.rate));
        EXPECT_EQ(hub.getCameraResolution("webcam"), Resolution(640, 480));
        for (int round = 0; round < 3; ++round) {
            rig.epoch += 250000;
            for (size_t i = 0; i < names.size(); ++i) {
                SCOPED_TRACE(names[i]);
                boost::shared_ptr<ImageBuffer> image = hub.getImage(names[i]);
                ASSERT_TRUE(image);
                EXPECT_EQ(image->getResolution(), clients[i].size);
                EXPECT_EQ(image->getColorSpace(), clients[i].space);
                if (i == 0) {
                    EXPECT_EQ(image->getData()[0], static_cast<uint8_t>(rig.device->sequence));
                }
                hub.releaseImage(names[i]);
            }
        }
    }
    fakeDevices().erase("shared");
    EXPECT_EQ(rig.device->openDescriptors, 0);
    EXPECT_EQ(rig.device->mapped, 0);
}

} // namespace
